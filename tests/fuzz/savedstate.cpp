// SPDX-License-Identifier: Apache-2.0
// The saved-state file: what was read is written as it was read.
#include "fuzz/fuzz.h"
#include "runtime/holders.h"
#include "store/arrays.h"
#include "store/state_file_layout.h"

#include <algorithm>
#include <vector>

using namespace tavstrg;

using fuzz::Bytes;
using fuzz::require;

namespace {

// Everything about a set of records must hold whether or not reading them succeeded.
void checkRecords(const DatInfo *records, size_t most)
{
    size_t all = 0;
    for (const ClassDesc &desc : kClasses) {
        const DatInfo &dat = records[desc.id];
        const int32_t num = recordsHeld(dat);
        all += static_cast<size_t>(num) * dat.datSize;
        for (int32_t i = 0; i < num; ++i) {
            const auto *record = static_cast<const char *>(dat.datAdr) + static_cast<size_t>(i) * dat.datSize;
            for (const FieldDesc &field : desc.fields) {
                require(field.type != CMPI_chars || field.key ||
                            std::memchr(record + field.offset, '\0', field.size) != nullptr,
                        "a text ends within its field");
            }
        }
    }
    require(all <= most, "no more is held than the file has");
}

int readState(Bytes content, DatInfo *records)
{
    if (content.empty()) {
        return -1; // no stream can be opened on nothing
    }
    const FilePtr file(::fmemopen(const_cast<uint8_t *>(content.data()), content.size(), "r"));
    require(static_cast<bool>(file), "a stream can be opened");
    return strgGetBinFile(file.get(), records);
}

std::vector<uint8_t> composed(const DatInfo *records)
{
    std::vector<uint8_t> out(stateFileSize(records));
    require(composeStateFile(records, out), "records can be written");
    return out;
}

void checkTotals(const DatInfo *records)
{
    StrgTnumRec totals{};
    require(copyRecord(records[TAV_CID_STRG_TNUM], 0, {reinterpret_cast<uint8_t *>(&totals), sizeof totals}),
            "there are totals");
    for (int id = TAV_CID_STRG_CTRL; id < TAV_CID_STRG_MAX; ++id) {
        require(totalOf(totals, id) == recordsHeld(records[id]), "a class has as many records as the totals say");
    }
}

// Reads the written file into an empty set and over a full one: both are as they were.
void checkRoundTrip(OwnedRecords &records)
{
    const std::vector<uint8_t> written = composed(records.dat);
    OwnedRecords again;
    require(readState(written, again.dat) == 0 && composed(again.dat) == written, "what was written is read");
    require(readState(written, records.dat) == 0 && composed(records.dat) == written, "and over what was there");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    OwnedRecords records;
    const int result = readState({data, size}, records.dat);
    constexpr size_t kWidened = sizeof(StrgTnumRec) - kOldTotalsSize; // the old version's totals grow
    checkRecords(records.dat, size + kWidened);
    if (result == 0) {
        checkTotals(records.dat);
        checkRoundTrip(records);
    }
    return 0;
}

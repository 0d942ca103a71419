// SPDX-License-Identifier: Apache-2.0
#include "store/state_file_layout.h"

#include "store/arrays.h"

#include <cstring>

using namespace tavstrg;

namespace {

const FieldDesc &counterOf(int classId)
{
    return kClasses[TAV_CID_STRG_TNUM].fields[static_cast<size_t>(classId - TAV_CID_STRG_CTRL)];
}

size_t blockSize(const DatInfo &dat)
{
    return static_cast<size_t>(recordsHeld(dat)) * dat.datSize;
}

void putTotals(const DatInfo *records, std::span<uint8_t> block)
{
    StrgTnumRec totals = {};
    if (block.size() != sizeof totals) {
        return;
    }
    std::memcpy(&totals, block.data(), sizeof totals);
    for (int id = TAV_CID_STRG_CTRL; id < TAV_CID_STRG_MAX; ++id) {
        setTotal(totals, id, recordsHeld(records[id]));
    }
    std::memcpy(block.data(), &totals, sizeof totals);
}

} // namespace

FileVersion tavstrg::fileVersion(std::string_view line)
{
    if (line == TAV_DAT_STRG_VERNAME) {
        return FileVersion::current;
    }
    return line == kOldVersionLine ? FileVersion::old : FileVersion::unknown;
}

uint16_t tavstrg::totalOf(const StrgTnumRec &totals, int classId)
{
    return static_cast<uint16_t>(fieldNumber(counterOf(classId), &totals));
}

void tavstrg::setTotal(StrgTnumRec &totals, int classId, int32_t count)
{
    const auto counter = static_cast<uint16_t>(count);
    std::memcpy(reinterpret_cast<uint8_t *>(&totals) + counterOf(classId).offset, &counter, sizeof counter);
}

size_t tavstrg::stateFileSize(const DatInfo *records)
{
    size_t size = kVersionLineSize;
    for (const DatInfo &dat : std::span(records, TAV_CID_STRG_MAX)) {
        size += blockSize(dat);
    }
    return size;
}

bool tavstrg::composeStateFile(const DatInfo *records, std::span<uint8_t> out)
{
    if (out.size() != stateFileSize(records)) {
        return false;
    }
    std::memcpy(out.data(), TAV_DAT_STRG_VERNAME.data(), kVersionLineSize);
    size_t offset = kVersionLineSize;
    for (int id = 0; id < TAV_CID_STRG_MAX; ++id) {
        const std::span<uint8_t> block = out.subspan(offset, blockSize(records[id]));
        if (!block.empty()) {
            std::memcpy(block.data(), records[id].datAdr, block.size());
        }
        if (id == TAV_CID_STRG_TNUM) {
            putTotals(records, block);
        }
        offset += block.size();
    }
    return true;
}

// SPDX-License-Identifier: Apache-2.0
// Replies of an ATA disk: sense data, then IDENTIFY, SMART data, thresholds and a page of statistics, divided by 0x1E.
#include "disks/ask/ata_command.h"
#include "disks/ask/ata_decode.h"
#include "disks/ask/verdict.h"
#include "fuzz/fuzz.h"

using namespace tavstrg::disks;

using fuzz::require;

namespace {

constexpr uint8_t kPages[] = {1, 5, 7};

void checkIdentity(Bytes identify)
{
    const auto identity = identityOf(identify);
    require(!identity || identify.size() >= kAtaBlock, "an identity comes from a whole block");
    if (identity) {
        fuzz::requireTerminated(identity->serial);
        fuzz::requireTerminated(identity->firmware);
        fuzz::requireTerminated(identity->model);
        fuzz::requireTerminated(identity->wwid);
        for (const char *text = identity->model; *text != '\0'; ++text) {
            require(isPrintable(*text), "a model is printable");
        }
    }
}

void checkAttributes(const Readings &readings)
{
    require(readings.attributeCount <= kMostAttributes, "a page has thirty attributes at most");
    for (uint32_t i = 0; i < readings.attributeCount; ++i) {
        require(readings.attributes[i].id != 0 && readings.attributes[i].raw >> 48 == 0,
                "an attribute has an id and six bytes");
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    fuzz::Parts parts({data, size});
    const fuzz::Exact sense(parts.next());
    const fuzz::Exact identify(parts.next());
    const fuzz::Exact smart(parts.next());
    const fuzz::Exact thresholds(parts.next());
    const fuzz::Exact statistics(parts.rest());
    const auto registers = registersOf(sense.bytes());
    require(!registers || sense.bytes().size() >= 14, "registers come from whole sense data");
    checkIdentity(identify.bytes());
    Readings readings{};
    takeAttributes(smart.bytes(), readings);
    takeThresholds(thresholds.bytes(), readings);
    checkAttributes(readings);
    for (const uint8_t page : kPages) {
        takeStatistics(statistics.bytes(), page, readings);
        static_cast<void>(listsStatistics(statistics.bytes(), page));
    }
    static_cast<void>(pagesOfLog(statistics.bytes(), 0xFF));
    readAttributes(readings);
    const Health health = judgeAta({false, registers ? verdictOf(*registers) : SmartVerdict::unknown}, readings);
    fuzz::requireTerminated(health.reason);
    require(health.reason[0] != '\0', "a verdict has a reason");
    return 0;
}

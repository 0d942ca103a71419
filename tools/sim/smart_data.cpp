// SPDX-License-Identifier: Apache-2.0
// Device SMART data structure and logs as ACS-3 tells them, the attributes in them and their thresholds as ATA-3 did.
#include "sim/smart_data.h"

#include <algorithm>

namespace sim {

namespace {

constexpr size_t kSector = 512;
constexpr size_t kEntries = 30;
constexpr size_t kEntryLength = 12;

// The last byte makes the sum of all 0.
std::vector<uint8_t> withChecksum(std::vector<uint8_t> sector)
{
    uint8_t sum = 0;
    for (const uint8_t byte : sector) {
        sum = static_cast<uint8_t>(sum + byte);
    }
    sector.back() = static_cast<uint8_t>(-sum);
    return sector;
}

// A sector of the revision, with what put makes of each attribute's entry.
template <class Put> std::vector<uint8_t> attributeSector(const SmartDescription &smart, Put put)
{
    std::vector<uint8_t> sector(kSector);
    sector[0] = 1; // revision of the structure
    for (size_t i = 0; i < std::min(smart.attributes.size(), kEntries); ++i) {
        put(smart.attributes[i], sector.data() + 2 + i * kEntryLength);
    }
    return sector;
}

// What the disk can do beside: off-line collection and self-tests, of which none has run.
void putCapabilities(std::vector<uint8_t> &data)
{
    data[364] = 120;  // seconds that an off-line collection takes
    data[367] = 0x19; // EXECUTE OFF-LINE IMMEDIATE, surface scan, self-tests
    data[368] = 0x03; // saves its data, autosave
    data[370] = 0x01; // error logging
    data[372] = 2;    // minutes of a short self-test
    data[373] = 60;   // of an extended one
}

} // namespace

std::vector<uint8_t> smartData(const SmartDescription &smart)
{
    std::vector<uint8_t> data = attributeSector(smart, [](const SmartAttribute &attribute, uint8_t *entry) {
        entry[0] = attribute.id;
        entry[1] = static_cast<uint8_t>(attribute.flags);
        entry[2] = static_cast<uint8_t>(attribute.flags >> 8);
        entry[3] = attribute.current;
        entry[4] = attribute.worst;
        std::copy(attribute.raw.begin(), attribute.raw.end(), entry + 5);
        entry[11] = attribute.threshold;
    });
    putCapabilities(data);
    return withChecksum(std::move(data));
}

std::vector<uint8_t> smartThresholds(const SmartDescription &smart)
{
    return withChecksum(attributeSector(smart, [](const SmartAttribute &attribute, uint8_t *entry) {
        entry[0] = attribute.id;
        entry[1] = attribute.threshold;
    }));
}

std::vector<uint8_t> smartLog(uint8_t address)
{
    constexpr uint8_t kSummaryErrorLog = 1;
    constexpr uint8_t kSelfTestLog = 6;
    std::vector<uint8_t> log(kSector);
    log[0] = 1; // version
    switch (address) {
    case 0: // the directory has no checksum: a word per log tells its sectors
        log[size_t{2} * kSummaryErrorLog] = log[size_t{2} * kSelfTestLog] = 1;
        return log;
    case kSummaryErrorLog:
    case kSelfTestLog:
        return withChecksum(std::move(log));
    default:
        return {};
    }
}

} // namespace sim

// SPDX-License-Identifier: Apache-2.0
// Device SMART data and logs as in ACS-3, the attributes in them and their thresholds as in ATA-3.
#include "sim/ata_sectors.h"

#include <algorithm>
#include <bit>
#include <cstddef>
#include <string>
#include <utility>

namespace sim {

namespace {

// ---- IDENTIFY ----

struct TextField {
    size_t word, words;
};
constexpr TextField kSerial{10, 10};
constexpr TextField kFirmware{23, 4};
constexpr TextField kModel{27, 20};

void putWord(IdentifyBlock &block, size_t word, unsigned value)
{
    block[2 * word] = static_cast<uint8_t>(value);
    block[2 * word + 1] = static_cast<uint8_t>(value >> 8);
}

void putText(IdentifyBlock &block, TextField field, const std::string &text)
{
    for (size_t i = 0; i < 2 * field.words; ++i) {
        block[2 * field.word + (i ^ 1)] = static_cast<uint8_t>(i < text.size() ? text[i] : ' ');
    }
}

void makeReadable(IdentifyBlock &block, TextField field, bool dropBlanks)
{
    const auto begin = block.begin() + static_cast<std::ptrdiff_t>(2 * field.word);
    const auto end = begin + static_cast<std::ptrdiff_t>(2 * field.words);
    for (auto at = begin; at != end; at += 2) {
        std::iter_swap(at, at + 1);
    }
    for (auto at = end; dropBlanks && at != begin && *(at - 1) == ' '; --at) {
        *(at - 1) = 0;
    }
}

void putSize(IdentifyBlock &block, uint64_t sectors)
{
    const auto lba28 = static_cast<unsigned>(std::min<uint64_t>(sectors, 0x0FFFFFFF));
    putWord(block, 60, lba28 & 0xFFFF);
    putWord(block, 61, lba28 >> 16);
    for (size_t i = 0; i < 4; ++i) {
        putWord(block, 100 + i, static_cast<unsigned>(sectors >> (16 * i) & 0xFFFF));
    }
}

// Sector sizes, rotation rate and world wide name, where they are described.
void putBlockAttributes(IdentifyBlock &block, const DeviceDescription &device)
{
    const unsigned physical = device.block.physicalSectorSize;
    if (physical > device.sectorSize) {
        putWord(block, 106, 0x6000 | static_cast<unsigned>(std::countr_zero(physical / device.sectorSize)));
    }
    if (device.block.rotationRate) {
        putWord(block, 217, *device.block.rotationRate == 0 ? 1 : *device.block.rotationRate);
    }
    const std::vector<uint8_t> &wwn = device.identity.wwn;
    for (size_t i = 0; i < 4 && wwn.size() == 8; ++i) {
        putWord(block, 108 + i, static_cast<unsigned>(wwn[2 * i] << 8 | wwn[2 * i + 1]));
    }
    if (wwn.size() == 8) {
        block[2 * size_t{84} + 1] |= 1; // bit 8: the name is valid
        block[2 * size_t{87} + 1] |= 1;
    }
}

// ---- SMART ----

constexpr size_t kSector = 512;
constexpr size_t kEntries = 30;
constexpr size_t kEntryLength = 12;

// Sets the last byte so that the sum of all bytes is 0.
std::vector<uint8_t> withChecksum(std::vector<uint8_t> sector)
{
    uint8_t sum = 0;
    for (const uint8_t byte : sector) {
        sum = static_cast<uint8_t>(sum + byte);
    }
    sector.back() = static_cast<uint8_t>(-sum);
    return sector;
}

// A sector with an entry per attribute, which put fills in.
template <class Put> std::vector<uint8_t> attributeSector(const SmartDescription &smart, Put put)
{
    std::vector<uint8_t> sector(kSector);
    sector[0] = 1; // revision of the structure
    for (size_t i = 0; i < std::min(smart.attributes.size(), kEntries); ++i) {
        put(smart.attributes[i], sector.data() + 2 + i * kEntryLength);
    }
    return sector;
}

// The disk's capabilities: off-line collection and self-tests, of which none has run.
void putCapabilities(std::vector<uint8_t> &data)
{
    data[364] = 120;  // seconds of an off-line collection
    data[367] = 0x19; // EXECUTE OFF-LINE IMMEDIATE, surface scan, self-tests
    data[368] = 0x03; // saves its data, autosave
    data[370] = 0x01; // error logging
    data[372] = 2;    // minutes of a short self-test
    data[373] = 60;   // minutes of an extended self-test
}

} // namespace

IdentifyBlock identifyBlock(const DeviceDescription &device, bool smartEnabled)
{
    IdentifyBlock block{};
    const bool packet = device.type != kDisk && !device.isAtaDisk();
    const unsigned smart = device.smart.supported ? 1 : 0;
    putWord(block, 0, packet ? 0x85C0 : 0x0040);
    if (!packet) {
        putWord(block, 1, static_cast<unsigned>(std::min<uint64_t>(device.sectors / (16UL * 63), 16383)));
        putWord(block, 3, 16);
        putWord(block, 6, 63);
        putSize(block, device.sectors);
    }
    putText(block, kSerial, device.serial);
    putText(block, kFirmware, device.revision);
    putText(block, kModel, device.model);
    putWord(block, 49, 0x0B00); // LBA, DMA
    putWord(block, 53, 7);
    putWord(block, 80, 0x00F0);
    putWord(block, 82, packet ? 0 : 0x4020 | smart); // NOP, write cache, SMART
    putWord(block, 83, packet ? 0 : 0x7400);         // words 82 and 83 are valid (01b); 48-bit addresses
    const unsigned logs = smart != 0 ? 3 : 0;        // SMART error logging, SMART self-test
    putWord(block, 84, packet ? 0 : 0x4000 | logs);
    putWord(block, 85, packet ? 0 : 0x4020U | (smart != 0 && smartEnabled ? 1U : 0U));
    putWord(block, 86, packet ? 0 : 0x3400);
    putWord(block, 87, packet ? 0 : 0x4000 | logs);
    putBlockAttributes(block, device);
    if (device.statistics.supported) {
        block[2 * size_t{84}] |= 0x20; // general purpose logging
        block[2 * size_t{87}] |= 0x20;
    }
    for (const auto &[word, value] : device.identifyWords) {
        putWord(block, word, value);
    }
    return block;
}

IdentifyBlock identityForIoctl(const DeviceDescription &device, bool smartEnabled)
{
    IdentifyBlock block = identifyBlock(device, smartEnabled);
    for (const TextField &field : {kSerial, kFirmware, kModel}) {
        makeReadable(block, field, device.isIde());
    }
    return block;
}

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
    case 0: // the directory: per log a word with its number of sectors; no checksum
        log[size_t{2} * kSummaryErrorLog] = log[size_t{2} * kSelfTestLog] = 1;
        return log;
    case kSummaryErrorLog:
    case kSelfTestLog:
        return withChecksum(std::move(log));
    default:
        return {};
    }
}

namespace {

constexpr size_t kStatisticsPages = 8;

bool hasPage(const StatisticsDescription &statistics, uint8_t page)
{
    return page == 0 || statistics.pages.contains(page) ||
           std::any_of(statistics.values.begin(), statistics.values.end(),
                       [page](const auto &entry) { return entry.first.first == page; });
}

// ACS-3: revision and page in the first 8 bytes, then 8 bytes for each statistic, of which the last has its flags.
void putStatistics(const StatisticsDescription &statistics, uint8_t page, uint8_t *sector)
{
    constexpr uint8_t kSupported = 0x80;
    constexpr uint8_t kValid = 0x40;
    if (const auto given = statistics.pages.find(page); given != statistics.pages.end()) {
        std::copy(given->second.begin(), given->second.end(), sector);
        return;
    }
    sector[0] = 1;
    sector[2] = page;
    for (const auto &[place, value] : statistics.values) {
        if (place.first != page) {
            continue;
        }
        uint8_t *const at = sector + place.second;
        for (unsigned i = 0; i < 7 && value; ++i) {
            at[i] = static_cast<uint8_t>(static_cast<uint64_t>(*value) >> (8 * i));
        }
        if (value && *value < 0) { // temperatures are signed bytes
            std::fill(at + 1, at + 7, uint8_t{0});
        }
        at[7] = static_cast<uint8_t>(kSupported | (value ? kValid : 0));
    }
}

std::vector<uint8_t> statisticsLog(const StatisticsDescription &statistics)
{
    std::vector<uint8_t> log(kStatisticsPages * kSector);
    for (uint8_t page = 1; page < kStatisticsPages; ++page) {
        if (hasPage(statistics, page)) {
            putStatistics(statistics, page, log.data() + page * kSector);
        }
    }
    if (statistics.pages.contains(0)) {
        putStatistics(statistics, 0, log.data());
        return log;
    }
    log[0] = 1;
    for (uint8_t page = 0; page < kStatisticsPages; ++page) {
        if (hasPage(statistics, page)) {
            log[size_t{9} + log[8]] = page; // byte 8: number of the pages that follow
            ++log[8];
        }
    }
    return log;
}

} // namespace

std::vector<uint8_t> generalLog(const DeviceDescription &device, uint8_t address)
{
    if (!device.statistics.supported) {
        return {};
    }
    if (address == kStatisticsLog) {
        return statisticsLog(device.statistics);
    }
    std::vector<uint8_t> directory(kSector);
    directory[0] = 1;
    directory[size_t{2} * kStatisticsLog] = kStatisticsPages;
    return address == 0 ? directory : std::vector<uint8_t>();
}

} // namespace sim

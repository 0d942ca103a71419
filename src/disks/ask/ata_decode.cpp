// SPDX-License-Identifier: Apache-2.0
#include "disks/ask/ata_decode.h"

#include "devcmd/transport/sat_command.h"
#include "devcmd/transport/sense.h"
#include "disks/ask/ata_command.h"

#include <algorithm>
#include <array>
#include <cstdio>

namespace tavstrg::disks {
namespace {

uint16_t word(Bytes identify, size_t number)
{
    return static_cast<uint16_t>(littleEndian(identify, 2 * number, 2));
}

// A text of IDENTIFY: the first character of each pair is in the high byte.
template <size_t N> void takeText(Bytes identify, size_t firstWord, char (&field)[N])
{
    char text[N];
    for (size_t i = 0; i < N - 1; ++i) {
        text[i] = static_cast<char>(byteAt(identify, 2 * firstWord + (i ^ 1U)));
    }
    copyClean(field, {text, N - 1});
}

void takeWorldWideName(Bytes identify, char (&wwid)[24])
{
    constexpr uint16_t kHasName = 1 << 8; // word 87
    if ((word(identify, 87) & kHasName) != 0) {
        std::snprintf(wwid, sizeof wwid, "naa.%04x%04x%04x%04x", unsigned{word(identify, 108)},
                      unsigned{word(identify, 109)}, unsigned{word(identify, 110)}, unsigned{word(identify, 111)});
    }
}

void takeRotation(Bytes identify, AtaIdentity &identity)
{
    const uint16_t rate = word(identify, 217);
    if (rate == 1) {
        identity.rotational.set(false);
    } else if (rate >= 0x0401 && rate <= 0xFFFE) {
        identity.rotational.set(true);
        identity.rotationsPerMinute.set(rate);
    }
}

// Bits 15 and 14 of a word are 01 where the word before it counts.
bool counts(uint16_t marker)
{
    return (marker & 0xC000) == 0x4000;
}

constexpr size_t kAttributesAt = 2;
constexpr size_t kAttributeLength = 12;

const AtaAttribute *attribute(const Readings &readings, uint8_t id)
{
    const auto *const end = readings.attributes + readings.attributeCount;
    const auto *const found =
        std::find_if(readings.attributes, end, [id](const AtaAttribute &a) { return a.id == id; });
    return found == end ? nullptr : found;
}

template <class Value> void readRaw(const Readings &readings, uint8_t id, uint64_t mask, Maybe<Value> &value)
{
    if (const AtaAttribute *const found = attribute(readings, id); found != nullptr && !value) {
        value.set(static_cast<Value>(found->raw & mask));
    }
}

// A temperature of 0 or below zero is what disks without sensor report.
void readTemperature(const Readings &from, uint8_t id, Maybe<int32_t> &value)
{
    const AtaAttribute *const found = attribute(from, id);
    const auto celsius = found == nullptr ? int8_t{0} : static_cast<int8_t>(found->raw & 0xFF);
    if (celsius > 0 && !value) {
        value.set(celsius);
    }
}

// A statistic: a value of so many bytes in an eight-byte field whose last byte says whether it is there.
Maybe<uint64_t> statistic(Bytes page, size_t at, size_t length)
{
    constexpr uint8_t kSupportedAndValid = 0xC0;
    if ((byteAt(page, at + 7) & kSupportedAndValid) != kSupportedAndValid) {
        return {};
    }
    return someOf(littleEndian(page, at, length));
}

void takeGeneral(Bytes page, Readings &readings)
{
    constexpr uint64_t kSector = 512; // statistics count logical sectors of 512 bytes unless the disk has larger ones
    if (const auto cycles = statistic(page, 8, 4)) {
        readings.powerCycles = cycles;
    }
    if (const auto hours = statistic(page, 16, 4)) {
        readings.powerOnHours = hours;
    }
    if (const auto written = statistic(page, 24, 6)) {
        readings.bytesWritten.set(written.value * kSector);
    }
    if (const auto read = statistic(page, 40, 6)) {
        readings.bytesRead.set(read.value * kSector);
    }
}

} // namespace

std::optional<AtaRegisters> registersOf(Bytes sense)
{
    const auto descriptor = ataReturnBytes(findSenseDescriptor(sense, kAtaReturnDescriptor));
    if (descriptor.size() >= 14) {
        return AtaRegisters{descriptor[3], descriptor[13], descriptor[5], descriptor[7], descriptor[9], descriptor[11]};
    }
    SenseInfo info{};
    const bool fixed = decodeSense(sense, info) == SenseFormat::kFixed;
    if (!fixed || info.asc != 0x00 || info.ascq != 0x1D || sense.size() < 14) {
        return std::nullopt;
    }
    return AtaRegisters{sense[3], sense[4], sense[6], sense[9], sense[10], sense[11]};
}

PowerState powerOf(uint8_t count)
{
    switch (count) {
    case 0x00: // standby_z
    case 0x01: // standby_y
    case 0x40: // spun down by the NV cache
        return PowerState::standby;
    case 0x80:
    case 0x81: // idle_a
    case 0x82: // idle_b
    case 0x83: // idle_c
        return PowerState::idle;
    case 0x41:
    case 0xFF:
        return PowerState::active;
    default:
        return PowerState::unknown;
    }
}

SmartVerdict verdictOf(const AtaRegisters &registers)
{
    if (registers.lbaMid == kSmartLbaMid && registers.lbaHigh == kSmartLbaHigh) {
        return SmartVerdict::good;
    }
    if (registers.lbaMid == kSmartExceededLbaMid && registers.lbaHigh == kSmartExceededLbaHigh) {
        return SmartVerdict::exceeded;
    }
    return SmartVerdict::unknown;
}

std::optional<AtaIdentity> identityOf(Bytes identify)
{
    constexpr uint16_t kNotAta = 1 << 15; // word 0
    const bool empty = std::all_of(identify.begin(), identify.end(), [](uint8_t byte) { return byte == 0; });
    if (identify.size() < kAtaBlock || empty || (word(identify, 0) & kNotAta) != 0) {
        return std::nullopt;
    }
    AtaIdentity identity{};
    identity.wordsValid = counts(word(identify, 83));
    identity.smartSupported = (word(identify, 82) & 1) != 0;
    identity.smartEnabled = (word(identify, 85) & 1) != 0;
    identity.logsSupported = counts(word(identify, 84)) && (word(identify, 84) & 1 << 5) != 0;
    takeText(identify, 10, identity.serial);
    takeText(identify, 23, identity.firmware);
    takeText(identify, 27, identity.model);
    takeWorldWideName(identify, identity.wwid);
    takeRotation(identify, identity);
    return identity;
}

void takeAttributes(Bytes data, Readings &readings)
{
    readings.attributeCount = 0;
    for (size_t i = 0; i < kMostAttributes; ++i) {
        const Bytes entry = part(data, kAttributesAt + i * kAttributeLength, kAttributeLength);
        if (entry.size() < kAttributeLength || entry[0] == 0) {
            continue;
        }
        AtaAttribute &to = readings.attributes[readings.attributeCount++];
        to = AtaAttribute{};
        to.id = entry[0];
        to.flags = static_cast<uint16_t>(littleEndian(entry, 1, 2));
        to.current = entry[3];
        to.worst = entry[4];
        to.raw = littleEndian(entry, 5, 6);
    }
}

void takeThresholds(Bytes thresholds, Readings &readings)
{
    for (size_t i = 0; i < kMostAttributes; ++i) {
        const Bytes entry = part(thresholds, kAttributesAt + i * kAttributeLength, kAttributeLength);
        for (uint32_t k = 0; entry.size() >= 2 && entry[0] != 0 && k < readings.attributeCount; ++k) {
            if (readings.attributes[k].id == entry[0]) {
                readings.attributes[k].threshold.set(entry[1]);
            }
        }
    }
}

void readAttributes(Readings &readings)
{
    constexpr uint64_t k16 = 0xFFFF;
    constexpr uint64_t k32 = 0xFFFFFFFF; // above it some disks keep other numbers
    readRaw(readings, 5, k32, readings.reallocatedSectors);
    readRaw(readings, 9, k32, readings.powerOnHours);
    readRaw(readings, 12, k32, readings.powerCycles);
    readRaw(readings, 187, k16, readings.mediaErrors);
    readRaw(readings, 197, k32, readings.pendingSectors);
    readTemperature(readings, 194, readings.temperatureCelsius);
    readTemperature(readings, 190, readings.temperatureCelsius);
}

uint32_t pagesOfLog(Bytes directory, uint8_t log)
{
    return static_cast<uint32_t>(littleEndian(directory, size_t{2} * log, 2));
}

bool listsStatistics(Bytes supported, uint8_t page)
{
    const Bytes pages = part(supported, 9, byteAt(supported, 8));
    return byteAt(supported, 2) == 0 && std::find(pages.begin(), pages.end(), page) != pages.end();
}

void takeStatistics(Bytes bytes, uint8_t page, Readings &readings)
{
    if (bytes.size() < kAtaBlock || byteAt(bytes, 2) != page) {
        return;
    }
    if (page == 1) {
        takeGeneral(bytes, readings);
    } else if (page == 5) {
        if (const auto celsius = statistic(bytes, 8, 1)) {
            readings.temperatureCelsius.set(static_cast<int8_t>(celsius.value));
        }
    } else if (page == 7) {
        if (const auto used = statistic(bytes, 8, 1)) {
            readings.enduranceUsedPercent.set(static_cast<uint32_t>(used.value));
        }
    }
}

} // namespace tavstrg::disks

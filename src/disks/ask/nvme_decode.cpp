// SPDX-License-Identifier: Apache-2.0
#include "disks/ask/nvme_decode.h"

#include "disks/ask/nvme_command.h"

#include <algorithm>
#include <limits>

namespace tavstrg::disks {
namespace {

// Counters have 16 bytes; one above 64 bits is the largest number of 64 bits.
uint64_t counter(Bytes log, size_t at)
{
    return littleEndian(log, at + 8, 8) != 0 ? std::numeric_limits<uint64_t>::max() : littleEndian(log, at, 8);
}

// Data units are thousands of 512 bytes, rounded up.
uint64_t bytesOfUnits(uint64_t units)
{
    constexpr uint64_t kUnit = 512000;
    return units > std::numeric_limits<uint64_t>::max() / kUnit ? std::numeric_limits<uint64_t>::max() : units * kUnit;
}

void takeTemperature(Bytes log, Readings &readings)
{
    constexpr int32_t kZeroCelsius = 273; // kelvins, as the field has them
    if (const auto kelvins = static_cast<int32_t>(littleEndian(log, 1, 2)); kelvins != 0) {
        readings.temperatureCelsius.set(kelvins - kZeroCelsius);
    }
}

bool isFilledWith(Bytes log, uint8_t value)
{
    return std::all_of(log.begin(), log.end(), [value](uint8_t byte) { return byte == value; });
}

} // namespace

Maybe<uint8_t> takeHealthLog(Bytes log, Readings &readings)
{
    if (log.size() < kHealthLogLength || isFilledWith(log, 0) || isFilledWith(log, 0xFF)) {
        return {};
    }
    takeTemperature(log, readings);
    readings.sparePercent.set(log[3]);
    readings.enduranceUsedPercent.set(log[5]);
    readings.bytesRead.set(bytesOfUnits(counter(log, 32)));
    readings.bytesWritten.set(bytesOfUnits(counter(log, 48)));
    readings.powerCycles.set(counter(log, 112));
    readings.powerOnHours.set(counter(log, 128));
    readings.mediaErrors.set(counter(log, 160));
    return someOf(log[0]);
}

} // namespace tavstrg::disks

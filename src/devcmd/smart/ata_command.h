// SPDX-License-Identifier: Apache-2.0
// SMART through the IDE ioctls (linux/hdreg.h, ATA8-ACS): argument blocks, and what comes back. Pure.
#pragma once

#include "devcmd/transport/sat_command.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>

namespace tavstrg {

// HDIO_DRIVE_CMD: command, sector number, feature, sector count; the data of so many sectors follow. LBA mid and high
// of SMART commands are the kernel's.
using DriveCommand = std::array<uint8_t, 4>;
constexpr DriveCommand kIdeIdentify{0xEC, 0, 0, 1};
constexpr DriveCommand kIdeIdentifyPacket{0xA1, 0, 0, 1};
constexpr DriveCommand kIdeSmartEnable{0xB0, 0x01, 0xD8, 0x00};
constexpr DriveCommand kIdeSmartDisable{0xB0, 0x01, 0xD9, 0x00};
constexpr DriveCommand kIdeSmartReadData{0xB0, 0x00, 0xD0, 0x01};

// HDIO_DRIVE_TASK: command, feature, sector count, sector number, LBA mid, LBA high, device; the registers come back in
// the same bytes.
using DriveTask = std::array<uint8_t, 7>;
constexpr DriveTask kIdeSmartStatus{0xB0, 0xDA, 0, 0, kSmartLbaMid, kSmartLbaHigh, 0};

// SmartPredict by the registers of SMART RETURN STATUS. Deliberate: any pair but the one for an exceeded
// threshold is good.
constexpr int16_t smartPredictOfTask(std::span<const uint8_t, 7> task)
{
    return task[4] == kSmartExceededLbaMid && task[5] == kSmartExceededLbaHigh ? int16_t{1} : int16_t{0};
}

// SmartSupport by IDENTIFY data, whose words are little-endian: 3 without the SMART feature set (word 82, bit 0), 2
// with it, 1 when the words do not count (word 83, bits 15 and 14 other than 01).
constexpr uint64_t smartSupportOfIdentify(std::span<const uint8_t, kIdentifyLength> identify)
{
    const uint8_t word82Low = identify[std::size_t{2} * 82];
    const uint8_t word83High = identify[std::size_t{2} * 83 + 1];
    if ((word83High & 0xC0) != 0x40) {
        return 1;
    }
    return (word82Low & 1) != 0 ? 2 : 3;
}

// SmartEnableState by IDENTIFY data: 2 when SMART is on (word 85, bit 0), 3 when it is off, 0 when the word does not
// count (word 87, bits 15 and 14 other than 01).
constexpr uint64_t smartStateOfIdentify(std::span<const uint8_t, kIdentifyLength> identify)
{
    const uint8_t word85Low = identify[std::size_t{2} * 85];
    const uint8_t word87High = identify[std::size_t{2} * 87 + 1];
    if ((word87High & 0xC0) != 0x40) {
        return 0;
    }
    return (word85Low & 1) != 0 ? 2 : 3;
}

} // namespace tavstrg

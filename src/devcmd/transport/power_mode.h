// SPDX-License-Identifier: Apache-2.0
// In which power mode a disk is, asked so that it stays there: CHECK POWER MODE (ACS-3, 7.3) for ATA disks, REQUEST
// SENSE (SPC-4, 5.6) for SCSI disks. Neither command needs the medium, and neither counts as use of the disk.
#pragma once

#include "devcmd/transport/sat_command.h"

#include <cstddef>
#include <cstdint>
#include <span>

namespace tavstrg {

enum class PowerMode {
    kUnknown, // not asked, not answered, or an answer that means nothing
    kAwake,   // active or idle: the medium turns
    kAsleep,  // standby: the next command that needs the medium has to spin it up
};

constexpr SatCommand kSatCheckPowerMode{.command = 0xE5, .ckCond = true};
static_assert(ataPassThrough16(kSatCheckPowerMode) ==
              std::array<uint8_t, 16>{0x85, 0x06, 0x2C, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0xE5, 0});

// The mode by the COUNT register of CHECK POWER MODE (ACS-3, table 49). Idle conditions are awake: the disk turns, and
// the commands that follow do not need the heads.
constexpr PowerMode powerModeOfCount(uint8_t count)
{
    switch (count) {
    case 0x00: // standby_z
    case 0x01: // standby_y
    case 0x40: // the cache answers, the spindle is stopped or stopping (ACS-2)
        return PowerMode::kAsleep;
    case 0x41: // the cache answers, the spindle turns
    case 0x80: // idle
    case 0x81: // idle_a
    case 0x82: // idle_b
    case 0x83: // idle_c
    case 0xFF: // active or idle
        return PowerMode::kAwake;
    default:
        return PowerMode::kUnknown;
    }
}

constexpr uint8_t kLowPowerCode = 0x5E; // ASC: LOW POWER CONDITION ON, and which one by the qualifier (SPC-4, annex D)

// The mode by an additional sense code and its qualifier. SAS disks enter an idle condition within a second; they are
// awake in it.
constexpr PowerMode powerModeOfCode(uint8_t asc, uint8_t ascq)
{
    if (asc == 0x04 && ascq == 0x02) { // LOGICAL UNIT NOT READY, INITIALIZING COMMAND REQUIRED: it was stopped
        return PowerMode::kAsleep;
    }
    if (asc != kLowPowerCode) {
        return PowerMode::kAwake;
    }
    switch (ascq) {
    case 0x01: // idle, by timer
    case 0x03: // idle, by command
    case 0x05: // idle_b, by timer
    case 0x06: // idle_b, by command
    case 0x07: // idle_c, by timer
    case 0x08: // idle_c, by command
    case 0x41: // changing to active
    case 0x42: // changing to idle
        return PowerMode::kAwake;
    default: // standby of any kind, sleep, or a condition that is not named
        return PowerMode::kAsleep;
    }
}

static_assert(powerModeOfCount(0x00) == PowerMode::kAsleep && powerModeOfCount(0xFF) == PowerMode::kAwake);
static_assert(powerModeOfCode(0x5E, 0x02) == PowerMode::kAsleep && powerModeOfCode(0x5E, 0x01) == PowerMode::kAwake);
static_assert(powerModeOfCode(0x00, 0x00) == PowerMode::kAwake);

// The mode by the parameter data of REQUEST SENSE: sense data in either format.
PowerMode powerModeOfSense(std::span<const uint8_t> data);

// Which of the two commands a disk understands.
enum class PowerQuestion { kAta, kScsi };

// Asks on an open node. A disk that does not answer is of unknown mode.
PowerMode askPowerMode(int fd, PowerQuestion question);

} // namespace tavstrg

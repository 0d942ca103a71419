// SPDX-License-Identifier: Apache-2.0
// The ATA commands that the engine sends, through ATA PASS-THROUGH(16) (SAT-4, 12.2): none changes anything, none
// spins a disk up that CHECK POWER MODE found in standby. Pure.
#pragma once

#include "devcmd/transport/sat_command.h"

#include <array>
#include <cstddef>
#include <cstdint>

namespace tavstrg::disks {

constexpr size_t kAtaBlock = 512; // bytes of a page, and of IDENTIFY and SMART data

using AtaCdb = std::array<uint8_t, 16>;

// ACS-3, 7.3 CHECK POWER MODE: the answer is in the COUNT register, which CK_COND returns.
constexpr SatCommand kCheckPowerMode{.command = 0xE5, .ckCond = true};
// ACS-3, 7.48: SMART READ DATA. SMART READ THRESHOLDS is that of ATA-3, which disks with attributes still have.
constexpr SatCommand kReadSmartData{.protocol = 4,
                                    .features = 0xD0,
                                    .count = 1,
                                    .lbaMid = kSmartLbaMid,
                                    .lbaHigh = kSmartLbaHigh,
                                    .tLength = 2,
                                    .dataLength = kAtaBlock};
constexpr SatCommand kReadSmartThresholds{.protocol = 4,
                                          .features = 0xD1,
                                          .count = 1,
                                          .lbaMid = kSmartLbaMid,
                                          .lbaHigh = kSmartLbaHigh,
                                          .tLength = 2,
                                          .dataLength = kAtaBlock};

constexpr AtaCdb kCheckPowerModeCdb = ataPassThrough16(kCheckPowerMode);
constexpr AtaCdb kIdentifyCdb = ataPassThrough16(kSatIdentify);
constexpr AtaCdb kSmartStatusCdb = ataPassThrough16(kSatSmartStatus);
constexpr AtaCdb kSmartDataCdb = ataPassThrough16(kReadSmartData);
constexpr AtaCdb kSmartThresholdsCdb = ataPassThrough16(kReadSmartThresholds);

constexpr uint8_t kLogDirectory = 0x00;     // ACS-3, A.2: 16-bit numbers of pages, little-endian, by log address
constexpr uint8_t kDeviceStatistics = 0x04; // ACS-3, A.5

// READ LOG EXT (ACS-3, 7.23): one page of a log of the general purpose logging feature set.
constexpr AtaCdb readLogCdb(uint8_t log, uint8_t page)
{
    return {
        0x85,                // ATA PASS-THROUGH(16)
        4 << 1 | 1,          // PIO data-in, EXTEND
        1 << 3 | 1 << 2 | 2, // T_DIR, BYTE_BLOCK, length in SECTOR COUNT
        0,
        0, // FEATURES
        0,
        1, // SECTOR COUNT: one page
        0,
        log, // LBA (31:24), (7:0)
        0,
        page, // LBA (39:32), (15:8): page number
        0,
        0,    // LBA (47:40), (23:16)
        0,    // DEVICE
        0x2F, // READ LOG EXT
        0,    // CONTROL
    };
}

static_assert(kCheckPowerModeCdb == AtaCdb{0x85, 0x06, 0x2C, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0xE5, 0});
static_assert(kIdentifyCdb == AtaCdb{0x85, 0x08, 0x0E, 0, 0, 0, 1, 0, 0, 0, 0, 0, 0, 0, 0xEC, 0});
static_assert(kSmartStatusCdb == AtaCdb{0x85, 0x06, 0x2C, 0, 0xDA, 0, 0, 0, 0, 0, 0x4F, 0, 0xC2, 0, 0xB0, 0});
static_assert(kSmartDataCdb == AtaCdb{0x85, 0x08, 0x0E, 0, 0xD0, 0, 1, 0, 0, 0, 0x4F, 0, 0xC2, 0, 0xB0, 0});
static_assert(kSmartThresholdsCdb == AtaCdb{0x85, 0x08, 0x0E, 0, 0xD1, 0, 1, 0, 0, 0, 0x4F, 0, 0xC2, 0, 0xB0, 0});
static_assert(readLogCdb(kDeviceStatistics, 7) ==
              AtaCdb{0x85, 0x09, 0x0E, 0, 0, 0, 1, 0, 0x04, 0, 7, 0, 0, 0, 0x2F, 0});

} // namespace tavstrg::disks

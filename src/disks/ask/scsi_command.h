// SPDX-License-Identifier: Apache-2.0
// The SCSI commands that the engine sends (SPC-5): none changes anything, none spins a disk up. LOG SENSE, MODE SENSE
// and REQUEST SENSE are built by devcmd. Pure.
#pragma once

#include "devcmd/transport/pages_command.h"

#include <array>
#include <cstddef>
#include <cstdint>

namespace tavstrg::disks {

constexpr size_t kScsiReply = 252; // bytes that are asked for: the most that every bridge transfers whole

constexpr uint8_t kSupportedPages = 0x00;
constexpr uint8_t kWriteErrorsPage = 0x02; // SPC-5, 7.3.6 and following: error counters
constexpr uint8_t kReadErrorsPage = 0x03;
constexpr uint8_t kTemperaturePage = 0x0D;
constexpr uint8_t kStartStopPage = 0x0E;
constexpr uint8_t kSolidStatePage = 0x11;     // SBC-4, 6.4.7
constexpr uint8_t kBackgroundScanPage = 0x15; // SBC-4, 6.4.2
constexpr uint8_t kExceptionsPage = 0x2F;

constexpr uint8_t kSupportedVpdPages = 0x00;
constexpr uint8_t kAtaInformationVpdPage = 0x89; // SAT-4, 12.4.2

// INQUIRY for a page of vital product data (SPC-5, 6.7).
constexpr Cdb6 inquiryCdb(uint8_t page)
{
    return {0x12, 0x01 /* EVPD */, page, 0, kScsiReply, 0};
}

static_assert(inquiryCdb(kSupportedVpdPages) == Cdb6{0x12, 1, 0, 0, 0xFC, 0});
static_assert(logSenseCdb(kSolidStatePage, kScsiReply) == Cdb10{0x4D, 0, 0x51, 0, 0, 0, 0, 0, 0xFC, 0});
static_assert(requestSenseCdb() == Cdb6{0x03, 0, 0, 0, 0xFF, 0});
static_assert(modeSense10Cdb(kExceptionsModePage, kCurrentValues, kScsiReply) ==
              Cdb10{0x5A, 0, 0x1C, 0, 0, 0, 0, 0, 0xFC, 0});

} // namespace tavstrg::disks

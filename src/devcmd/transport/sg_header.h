// SPDX-License-Identifier: Apache-2.0
// The kernel's SCSI generic header: how a request fills it, and what its reply means for the transport.
#pragma once

#include "devcmd/transport/transport.h"

#include <cstdint>
#include <scsi/sg.h>

namespace tavstrg {

// direction: the kernel's, SG_DXFER_...
constexpr sg_io_hdr sgHeader(const ScsiIoRequest &request, int direction)
{
    constexpr uint32_t kMillisecondsPerSecond = 1000;
    sg_io_hdr header{};
    header.interface_id = 'S';
    header.dxfer_direction = direction;
    header.cmd_len = static_cast<uint8_t>(request.cdb_len & 0xFFU);
    header.mx_sb_len = static_cast<uint8_t>(request.sense_max & 0xFFU);
    header.dxfer_len = static_cast<uint32_t>(request.data_len & 0xFFFFFFFFU);
    header.dxferp = request.data;
    header.cmdp = request.cdb;
    header.sbp = request.sense;
    header.timeout = request.timeout_sec * kMillisecondsPerSecond;
    return header;
}

enum class TransportOutcome {
    kGood,
    kGoodWithSense, // the driver brought sense data: counts as CHECK CONDITION
    kHostTimeout,
    kHostError,
    kDriverTimeout,
    kDriverError,
};

constexpr unsigned kFirstHostError = 4; // DID_BAD_TARGET; below it DID_NO_CONNECT, DID_BUS_BUSY and DID_TIME_OUT
constexpr unsigned kDriverTimedOut = 6; // DRIVER_TIMEOUT
constexpr unsigned kDriverSense = 8;    // DRIVER_SENSE

// Codes of the kernel's scsi.h. The host adapter's word comes first; of the driver's only the low four bits count, the
// upper ones are suggestions.
constexpr TransportOutcome judgeTransport(unsigned hostStatus, unsigned driverStatus)
{
    if (hostStatus != 0) {
        // Deliberate: a missing device and a busy bus count as time-outs too.
        return hostStatus < kFirstHostError ? TransportOutcome::kHostTimeout : TransportOutcome::kHostError;
    }
    switch (driverStatus & 0x0FU) {
    case 0:
        return TransportOutcome::kGood;
    case kDriverTimedOut:
        return TransportOutcome::kDriverTimeout;
    case kDriverSense:
        return TransportOutcome::kGoodWithSense;
    default:
        return TransportOutcome::kDriverError;
    }
}

} // namespace tavstrg

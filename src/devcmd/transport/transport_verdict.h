// SPDX-License-Identifier: Apache-2.0
// What the kernel's SCSI generic reply says about the transport, apart from the sending.
#pragma once

#include <cstdint>

namespace tavstrg {

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

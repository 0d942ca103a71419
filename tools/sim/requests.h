// SPDX-License-Identifier: Apache-2.0
// The ioctls that a device node knows, besides those of the kernel's headers.
#pragma once

#include "sim/device.h"

#include <cstdint>
#include <span>

namespace sim {

inline constexpr unsigned long kSendCommand = 1;       // SCSI_IOCTL_SEND_COMMAND, scsi/scsi_ioctl.h
inline constexpr unsigned long kGetIdlun = 0x5382;     // SCSI_IOCTL_GET_IDLUN
inline constexpr unsigned long kGetBusNumber = 0x5386; // SCSI_IOCTL_GET_BUS_NUMBER

// Argument of SCSI_IOCTL_SEND_COMMAND; CDB and parameter data follow, and the reply takes their place.
struct SendCommand {
    uint32_t inLength, outLength;
};

inline uint8_t *dataOf(SendCommand &command)
{
    return reinterpret_cast<uint8_t *>(&command + 1);
}

// By the operation code's group, as the kernel takes it.
inline std::span<const uint8_t> sentCdb(SendCommand &command)
{
    constexpr size_t kLengths[] = {6, 10, 10, 12, 16, 12, 6, 6};
    const uint8_t *cdb = dataOf(command);
    return {cdb, kLengths[cdb[0] >> 5]};
}

// Does what a known request asks for, or what the fault wants instead. As the system call: -1 with errno set on
// failure.
int executeRequest(Device &device, unsigned long number, void *argument, const Fault &fault);

} // namespace sim

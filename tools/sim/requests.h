// SPDX-License-Identifier: Apache-2.0
// ioctls of a device node that the kernel's headers do not declare.
#pragma once

#include "sim/device.h"

#include <cstdint>
#include <span>

namespace sim {

inline constexpr unsigned long kSendCommand = 1;       // SCSI_IOCTL_SEND_COMMAND, scsi/scsi_ioctl.h
inline constexpr unsigned long kGetIdlun = 0x5382;     // SCSI_IOCTL_GET_IDLUN
inline constexpr unsigned long kGetBusNumber = 0x5386; // SCSI_IOCTL_GET_BUS_NUMBER

// Argument of SCSI_IOCTL_SEND_COMMAND. The CDB and parameter data follow; the reply overwrites them.
struct SendCommand {
    uint32_t inLength, outLength;
};

inline uint8_t *dataOf(SendCommand &command)
{
    return reinterpret_cast<uint8_t *>(&command + 1);
}

// The CDB. As in the kernel, its length follows from the group of the operation code.
inline std::span<const uint8_t> sentCdb(SendCommand &command)
{
    constexpr size_t kLengths[] = {6, 10, 10, 12, 16, 12, 6, 6};
    const uint8_t *cdb = dataOf(command);
    return {cdb, kLengths[cdb[0] >> 5]};
}

// Executes a known request, or fails as the fault says. Returns the result of the system call: -1 with errno set on
// failure.
int executeRequest(Device &device, unsigned long number, void *argument, const Fault &fault);

// NVMe's own requests, on a node of NVMe.
int nvmeRequest(Device &device, unsigned long number, void *argument, const Fault &fault);

} // namespace sim

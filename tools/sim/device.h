// SPDX-License-Identifier: Apache-2.0
// A simulated device: its state, and its replies to requests. device_ioctl.cpp decodes requests and applies faults,
// device_execute.cpp executes them; device_scsi.cpp, device_pages.cpp and device_ata.cpp are the commands.
#pragma once

#include "sim/description.h"

#include <array>
#include <atomic>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

namespace sim {

// Values of mode page 1C.
struct ExceptionsSettings {
    bool dexcpt = false;
    uint8_t mrie = 0;
    uint8_t flags = 0; // byte 2 without DEXCPT
};

struct Device {
    std::string name; // "/dev/sda", for the log
    DeviceDescription is;
    bool gone = false; // removed from the machine, or the machine is gone
    // State that commands change:
    bool smartEnabled = true;
    ExceptionsSettings exceptions; // current values
    ExceptionsSettings savedExceptions;
    bool oldKernel = false;     // before 2.6: SCSI_IOCTL_SEND_COMMAND returns the driver status too
    bool unitAttention = false; // the next command ends in UNIT ATTENTION
    std::vector<uint8_t> lastSense;
    std::vector<unsigned> seen; // per fault: requests of its kind so far
    uint64_t random = 1;        // state of the device's random numbers
};

// Result of a SCSI command.
struct ScsiReply {
    uint8_t status = 0; // 2: CHECK CONDITION
    std::vector<uint8_t> data;
    std::vector<uint8_t> sense;
    bool wholeTransfer = false; // no residue is reported, however short the data (libata)
};

// ATA registers of a command or of its reply.
struct AtaRegisters {
    uint8_t features = 0, count = 0, lbaLow = 0, lbaMid = 0, lbaHigh = 0, device = 0, command = 0;
};

struct AtaReply {
    uint8_t status = 0x50; // DRDY, DSC; bit 0: error
    uint8_t error = 0;
    AtaRegisters registers; // count and LBA of the reply
    std::vector<uint8_t> data;
    bool failed() const { return (status & 1) != 0; }
};

// Applies a description to a device. State that commands have changed stays, except where the description differs from
// the former one.
void describeDevice(Device &device, const DeviceDescription &now, uint64_t seed);

// Kind of a request, and whether it is an ATA command, a SCSI command or both.
struct RequestKind {
    Kind own = Kind::other;
    bool ata = false, scsi = false;
};
RequestKind kindOfScsi(std::span<const uint8_t> cdb);
RequestKind kindOfAta(uint8_t command, uint8_t features);

AtaReply ataCommand(Device &device, const AtaRegisters &registers);
ScsiReply scsiCommand(Device &device, std::span<const uint8_t> cdb, std::span<const uint8_t> dataOut);
// The mode and log page commands, and REQUEST SENSE.
ScsiReply pageCommand(Device &device, std::span<const uint8_t> cdb, std::span<const uint8_t> dataOut);

// Fixed-format sense data of a failed command.
ScsiReply checkCondition(uint8_t key, uint8_t asc, uint8_t ascq = 0);
// The same sense data in descriptor format.
std::vector<uint8_t> inDescriptorFormat(std::span<const uint8_t> fixed);
constexpr uint8_t kIllegalRequest = 5;
constexpr uint8_t kInvalidOpcode = 0x20;
constexpr uint8_t kInvalidField = 0x24;

// Executes an ioctl on the device, with its faults and delays. Returns the result of the system call: -1 with errno set
// on failure.
int answer(Device &device, unsigned long number, void *argument);

} // namespace sim

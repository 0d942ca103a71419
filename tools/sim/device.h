// SPDX-License-Identifier: Apache-2.0
// A simulated device: its state, and its answers to requests. Decoding of requests (device_ioctl, device_scsi) stands
// apart from what the device is and does (device_ata, device_pages, identify).
#pragma once

#include "sim/description.h"

#include <array>
#include <atomic>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

namespace sim {

// What mode page 1C holds.
struct ExceptionsSettings {
    bool dexcpt = false;
    uint8_t mrie = 0;
    uint8_t flags = 0; // byte 2 but for DEXCPT
};

struct Device {
    std::string name; // "/dev/sda", for the log
    DeviceDescription is;
    bool gone = false; // taken out of the machine, or the machine is no more
    // State that commands change:
    bool smartEnabled = true;
    ExceptionsSettings exceptions; // the current ones
    ExceptionsSettings savedExceptions;
    bool oldKernel = false; // before 2.6: an ioctl hands out more of the result
    bool attention = false; // the next command is answered by a unit attention
    std::vector<uint8_t> lastSense;
    std::vector<unsigned> seen; // per fault: requests of its kind so far
    uint64_t random = 1;        // state of the device's random numbers
};

// What a SCSI command came to.
struct ScsiReply {
    uint8_t status = 0; // 2: CHECK CONDITION
    std::vector<uint8_t> data;
    std::vector<uint8_t> sense;
    bool wholeTransfer = false; // libata reports no residue, however little came
};

// ATA registers of a command, and as they come back.
struct AtaRegisters {
    uint8_t features = 0, count = 0, lbaLow = 0, lbaMid = 0, lbaHigh = 0, device = 0, command = 0;
};

struct AtaReply {
    uint8_t status = 0x50; // DRDY, DSC; bit 0: error
    uint8_t error = 0;
    AtaRegisters registers; // count and LBA as they come back
    std::vector<uint8_t> data;
    bool failed() const { return (status & 1) != 0; }
};

// Brings the state of a device to what its description says; what commands have changed stays where the description
// does not differ from before.
void describeDevice(Device &device, const DeviceDescription &now, uint64_t seed);

// The kinds of a request: its own, and of which commands it is one.
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

// Answers an ioctl on the device: as the system call, -1 with errno set on failure. May take its time.
int answer(Device &device, unsigned long number, void *argument);

} // namespace sim

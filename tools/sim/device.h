// SPDX-License-Identifier: Apache-2.0
// A simulated device: its state, and its replies to requests. device_ioctl.cpp decodes requests and applies faults,
// device_execute.cpp executes them; device_scsi.cpp, device_pages.cpp and device_ata.cpp are the commands.
#pragma once

#include "sim/description.h"

#include <array>
#include <atomic>
#include <cstdint>
#include <optional>
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
    unsigned waiting = 0;       // requests that hang until release
    unsigned releases = 0;      // how often those were released
    bool held = false;          // every request hangs
    Power power = Power::active;
    bool byTimer = false;      // the condition was entered by a timer, not by a command
    unsigned standbyTimer = 0; // seconds; commands can change it
    uint64_t lastUsedMs = 0;   // on the machine's clock
    unsigned spinUps = 0;
    bool suspended = false; // by the kernel's runtime power management
    unsigned resumes = 0;
    uint64_t reads = 0, writes = 0; // of the file "stat"
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
// nowMs: the machine's clock.
void describeDevice(Device &device, const DeviceDescription &now, uint64_t seed, uint64_t nowMs);

// Kind of a request, and whether it is an ATA command, a SCSI command or both.
struct RequestKind {
    Kind own = Kind::other;
    bool ata = false, scsi = false, nvme = false;
};
RequestKind kindOfNvme(uint8_t opcode);
RequestKind kindOfScsi(std::span<const uint8_t> cdb);
RequestKind kindOfAta(uint8_t command, uint8_t features);

AtaReply ataCommand(Device &device, const AtaRegisters &registers);
ScsiReply scsiCommand(Device &device, std::span<const uint8_t> cdb, std::span<const uint8_t> dataOut);
// Commands that wake no disk and so concern its power conditions too.
constexpr uint8_t kTestUnitReady = 0x00;
constexpr uint8_t kRequestSense = 0x03;
constexpr uint8_t kInquiry = 0x12;
constexpr uint8_t kCheckPowerMode = 0xE5; // ATA

// The mode and log page commands, and REQUEST SENSE.
ScsiReply pageCommand(Device &device, std::span<const uint8_t> cdb, std::span<const uint8_t> dataOut);

// Fixed-format sense data of a failed command.
ScsiReply checkCondition(uint8_t key, uint8_t asc, uint8_t ascq = 0);
// The same sense data in descriptor format.
std::vector<uint8_t> inDescriptorFormat(std::span<const uint8_t> fixed);
constexpr uint8_t kIllegalRequest = 5;
constexpr uint8_t kInvalidOpcode = 0x20;
constexpr uint8_t kInvalidField = 0x24;

// Lets the timers of a device do what they have done until now, on the machine's clock.
void settlePower(Device &device, uint64_t nowMs);
// A disk's power conditions see a request before the disk answers it: it may wake the disk. Returns for how many
// milliseconds it waits for this.
unsigned wakeFor(Device &device, const RequestKind &kind, std::span<const uint8_t> bytes, uint64_t nowMs);
// Access to the medium, by other programs of the machine. Returns the same.
unsigned wake(Device &device, uint64_t nowMs);
// CHECK POWER MODE, IDLE, STANDBY and SLEEP; nothing if it is none of them.
std::optional<AtaReply> powerCommand(Device &device, const AtaRegisters &registers);
// Sense data of REQUEST SENSE in a low power condition, with key NO SENSE; ASC 0 if the disk is active.
ScsiReply powerSense(const Device &device);

// Executes an ioctl on the device, with its faults and delays. Returns the result of the system call: -1 with errno set
// on failure.
int answer(Device &device, unsigned long number, void *argument);

} // namespace sim

// SPDX-License-Identifier: Apache-2.0
// Power conditions of a disk: ACS-3 (Power Management feature set), SPC-4 (power conditions, REQUEST SENSE).
#include "sim/device.h"

namespace sim {

namespace {

constexpr uint8_t kStandbyImmediate = 0xE0;
constexpr uint8_t kIdleImmediate = 0xE1;
constexpr uint8_t kStandby = 0xE2;
constexpr uint8_t kIdle = 0xE3;
constexpr uint8_t kSleep = 0xE6;

constexpr uint8_t kReportLuns = 0xA0;

// Standby timer periods of ACS-3: 5 seconds, half hours, and some fixed ones.
unsigned secondsOf(uint8_t period)
{
    if (period <= 240) {
        return period * 5U;
    }
    return period <= 251 ? (period - 240U) * 1800 : period == 252 ? 21 * 60 : period == 253 ? 8 * 3600 : 21 * 60 + 15;
}

void enter(Device &device, Power power)
{
    device.power = power;
    device.byTimer = false;
}

// SCSI commands that a disk answers in any power condition and without leaving it.
bool isQuiet(uint8_t opcode)
{
    return opcode == kTestUnitReady || opcode == kRequestSense || opcode == kInquiry || opcode == kReportLuns;
}

} // namespace

void settlePower(Device &device, uint64_t nowMs)
{
    const uint64_t unused = nowMs - device.lastUsedMs;
    const auto elapsed = [unused](unsigned seconds) { return seconds != 0 && unused >= uint64_t{1000} * seconds; };
    if (device.power == Power::active && elapsed(device.is.power.idleTimer)) {
        device.power = Power::idle;
        device.byTimer = true;
    }
    if (device.power <= Power::idle && elapsed(device.standbyTimer)) {
        device.power = Power::standby;
        device.byTimer = true;
    }
}

unsigned wake(Device &device, uint64_t nowMs)
{
    settlePower(device, nowMs);
    const bool spunDown = device.power >= Power::standby || device.suspended;
    device.spinUps += spunDown ? 1 : 0;
    device.resumes += device.suspended ? 1 : 0;
    device.suspended = false;
    device.power = Power::active;
    device.lastUsedMs = nowMs;
    return spunDown ? device.is.power.spinUpMs : 0;
}

unsigned wakeFor(Device &device, const RequestKind &kind, std::span<const uint8_t> bytes, uint64_t nowMs)
{
    settlePower(device, nowMs);
    const bool reachesDevice = device.is.ata ? kind.ata : kind.scsi;
    if (device.suspended && (kind.ata || kind.scsi)) { // the kernel resumes a device before it passes on any command
        return wake(device, nowMs);
    }
    const bool asksMode = kind.own == Kind::powerMode && device.power != Power::sleep;
    const bool quiet = asksMode || (!device.is.ata && (bytes.empty() || isQuiet(bytes[0])));
    return !reachesDevice || quiet ? 0 : wake(device, nowMs);
}

bool isPowerCommand(uint8_t command)
{
    return command >= kStandbyImmediate && command <= kSleep && command != 0xE4; // READ BUFFER
}

std::optional<AtaReply> powerCommand(Device &device, const AtaRegisters &registers)
{
    if (!isPowerCommand(registers.command) || (registers.command == kCheckPowerMode && !device.is.power.reported)) {
        return std::nullopt;
    }
    AtaReply reply;
    switch (registers.command) {
    case kCheckPowerMode:
        reply.registers.count = device.power == Power::active ? 0xFF : device.power == Power::idle ? 0x80 : 0x00;
        break;
    case kIdle:
    case kIdleImmediate:
        enter(device, Power::idle);
        break;
    case kSleep:
        enter(device, Power::sleep);
        break;
    default:
        enter(device, Power::standby);
        break;
    }
    if (registers.command == kStandby || registers.command == kIdle) {
        device.standbyTimer = secondsOf(registers.count);
    }
    return reply;
}

ScsiReply powerSense(const Device &device)
{
    constexpr uint8_t kLowPower = 0x5E;
    if (device.power == Power::active || !device.is.power.reported) {
        return checkCondition(0, 0);
    }
    const int byTimer = device.power == Power::idle ? 1 : 2;
    return checkCondition(0, kLowPower, static_cast<uint8_t>(device.byTimer ? byTimer : byTimer + 2));
}

} // namespace sim

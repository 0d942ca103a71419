// SPDX-License-Identifier: Apache-2.0
// ATA commands (ACS-3): IDENTIFY (PACKET) DEVICE and SMART.
#include "sim/ata_sectors.h"
#include "sim/device.h"

#include <cstddef>

namespace sim {

namespace {

constexpr uint8_t kIdentifyDevice = 0xEC;
constexpr uint8_t kIdentifyPacketDevice = 0xA1;
constexpr uint8_t kReadLogExt = 0x2F;
constexpr uint8_t kReadLogDmaExt = 0x47;
constexpr uint8_t kSmart = 0xB0;
constexpr uint8_t kSmartReadData = 0xD0;
constexpr uint8_t kSmartReadThresholds = 0xD1;
constexpr uint8_t kSmartReadLog = 0xD5;
constexpr uint8_t kSmartEnable = 0xD8;
constexpr uint8_t kSmartDisable = 0xD9;
constexpr uint8_t kSmartReturnStatus = 0xDA;

AtaReply aborted(const AtaRegisters &registers)
{
    AtaReply reply;
    reply.status = 0x41; // DRDY, ERR
    reply.error = 0x04;  // ABRT
    reply.registers.count = registers.count;
    return reply;
}

// Some pages of a log.
AtaReply readLog(const Device &device, const AtaRegisters &registers, uint8_t page)
{
    constexpr size_t kSector = 512;
    const std::vector<uint8_t> log = generalLog(device.is, registers.lbaLow);
    const size_t begin = page * kSector;
    const size_t end = begin + registers.count * kSector;
    if (registers.count == 0 || end > log.size()) {
        return aborted(registers);
    }
    AtaReply reply;
    reply.data.assign(log.begin() + static_cast<std::ptrdiff_t>(begin), log.begin() + static_cast<std::ptrdiff_t>(end));
    return reply;
}

AtaReply smartCommand(Device &device, const AtaRegisters &registers)
{
    const SmartDescription &smart = device.is.smart;
    const bool signature = registers.lbaMid == 0x4F && registers.lbaHigh == 0xC2;
    if ((device.is.type != kDisk && !device.is.isAtaDisk()) || !smart.supported || !signature) {
        return aborted(registers);
    }
    AtaReply reply;
    if (registers.features == kSmartEnable && smart.canEnable) {
        device.smartEnabled = true;
        return reply;
    }
    if (!device.smartEnabled) {
        return aborted(registers);
    }
    if (registers.features == kSmartDisable) {
        device.smartEnabled = false;
    } else if (registers.features == kSmartReturnStatus) {
        reply.registers.lbaMid = smart.lbaMid;
        reply.registers.lbaHigh = smart.lbaHigh;
    } else if (registers.features == kSmartReadData) {
        reply.data = smartData(smart);
    } else if (registers.features == kSmartReadThresholds) {
        reply.data = smartThresholds(smart);
    } else if (registers.features == kSmartReadLog && registers.lbaLow == kStatisticsLog) {
        return readLog(device, registers, 0);
    } else if (registers.features == kSmartReadLog && registers.count == 1) { // each log is one sector long
        reply.data = smartLog(registers.lbaLow);
        return reply.data.empty() ? aborted(registers) : reply;
    } else {
        return aborted(registers);
    }
    return reply;
}

} // namespace

RequestKind kindOfAta(uint8_t command, uint8_t features)
{
    if (command == kIdentifyDevice || command == kIdentifyPacketDevice) {
        return {Kind::identify, true, false};
    }
    if (command == kReadLogExt || command == kReadLogDmaExt) {
        return {Kind::readLog, true, false};
    }
    if (command == kCheckPowerMode) {
        return {Kind::powerMode, true, false};
    }
    if (command == kSmart) {
        switch (features) {
        case kSmartEnable:
            return {Kind::smartEnable, true, false};
        case kSmartDisable:
            return {Kind::smartDisable, true, false};
        case kSmartReturnStatus:
            return {Kind::smartStatus, true, false};
        case kSmartReadData:
            return {Kind::smartData, true, false};
        case kSmartReadLog:
            return {Kind::readLog, true, false};
        default:
            break;
        }
    }
    return {Kind::other, true, false};
}

AtaReply ataCommand(Device &device, const AtaRegisters &registers)
{
    const bool identify = registers.command == kIdentifyDevice && device.is.identifyBy == "device";
    const bool identifyPacket = registers.command == kIdentifyPacketDevice && device.is.identifyBy == "packet";
    if (identify || identifyPacket) {
        AtaReply reply;
        const IdentifyBlock block = identifyBlock(device.is, device.smartEnabled);
        reply.data.assign(block.begin(), block.end());
        return reply;
    }
    if (registers.command == kReadLogExt || registers.command == kReadLogDmaExt) {
        return readLog(device, registers, registers.lbaMid);
    }
    if (const std::optional<AtaReply> reply = powerCommand(device, registers)) {
        return *reply;
    }
    return registers.command == kSmart ? smartCommand(device, registers) : aborted(registers);
}

} // namespace sim

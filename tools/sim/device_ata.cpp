// ATA commands, as ACS-3 tells them: IDENTIFY (PACKET) DEVICE and SMART.
#include "sim/device.h"
#include "sim/identify.h"

#include <algorithm>

namespace sim {

namespace {

constexpr uint8_t kIdentifyDevice = 0xEC;
constexpr uint8_t kIdentifyPacketDevice = 0xA1;
constexpr uint8_t kSmart = 0xB0;
constexpr uint8_t kSmartReadData = 0xD0;
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

std::vector<uint8_t> smartData(const DeviceDescription &device)
{
    std::vector<uint8_t> data(512);
    data[0] = 1; // revision of the structure
    constexpr size_t kEntries = 30;
    constexpr size_t kEntryLength = 12;
    const std::vector<SmartAttribute> &attributes = device.smart.attributes;
    for (size_t i = 0; i < std::min(attributes.size(), kEntries); ++i) {
        uint8_t *entry = data.data() + 2 + i * kEntryLength;
        entry[0] = attributes[i].id;
        entry[1] = static_cast<uint8_t>(attributes[i].flags);
        entry[2] = static_cast<uint8_t>(attributes[i].flags >> 8);
        entry[3] = attributes[i].current;
        entry[4] = attributes[i].worst;
        std::copy(attributes[i].raw.begin(), attributes[i].raw.end(), entry + 5);
        entry[11] = attributes[i].threshold;
    }
    uint8_t sum = 0;
    for (const uint8_t byte : data) {
        sum = static_cast<uint8_t>(sum + byte);
    }
    data[511] = static_cast<uint8_t>(-sum);
    return data;
}

AtaReply smartCommand(Device &device, const AtaRegisters &registers)
{
    const SmartDescription &smart = device.is.smart;
    const bool signature = registers.lbaMid == 0x4F && registers.lbaHigh == 0xC2;
    if (device.is.type != kDisk || !smart.supported || !signature) {
        return aborted(registers);
    }
    AtaReply reply;
    if (registers.features == kSmartEnable && smart.canEnable) {
        device.smartEnabled = true;
    } else if (!device.smartEnabled) {
        return aborted(registers);
    } else if (registers.features == kSmartDisable) {
        device.smartEnabled = false;
    } else if (registers.features == kSmartReturnStatus) {
        reply.registers.lbaMid = smart.lbaMid;
        reply.registers.lbaHigh = smart.lbaHigh;
    } else if (registers.features == kSmartReadData) {
        reply.data = smartData(device.is);
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
    return registers.command == kSmart ? smartCommand(device, registers) : aborted(registers);
}

} // namespace sim

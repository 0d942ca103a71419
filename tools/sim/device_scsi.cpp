// SPDX-License-Identifier: Apache-2.0
// SCSI commands: SPC-4 for the common ones, SAT-3 for ATA PASS-THROUGH. For ATA disks the replies are those of Linux's
// libata, recorded in virtual machines (kernels 5.10, 6.1 and 6.12).
#include "sim/device.h"
#include "sim/vpd_pages.h"

#include <algorithm>
#include <optional>
#include <utility>

namespace sim {

namespace {

constexpr uint8_t kModeSelect6 = 0x15;
constexpr uint8_t kModeSense6 = 0x1A;
constexpr uint8_t kLogSense = 0x4D;
constexpr uint8_t kModeSelect10 = 0x55;
constexpr uint8_t kModeSense10 = 0x5A;
constexpr uint8_t kAtaPassThrough16 = 0x85;
constexpr uint8_t kAtaPassThrough12 = 0xA1;

void putPadded(std::vector<uint8_t> &data, size_t at, size_t length, const std::string &text)
{
    for (size_t i = 0; i < length; ++i) {
        data[at + i] = static_cast<uint8_t>(i < text.size() ? text[i] : ' ');
    }
}

ScsiReply standardInquiry(const Device &device)
{
    ScsiReply reply;
    const bool ata = device.is.ata;
    reply.data.resize(ata ? 96 : 64);
    std::vector<uint8_t> &data = reply.data;
    const bool removable = device.is.type == kCdrom || device.is.type == kWorm || device.is.type == kTape;
    data[0] = static_cast<uint8_t>(device.is.type & 0x1F);
    data[1] = removable ? 0x80 : 0;
    data[2] = static_cast<uint8_t>(device.is.ansiVersion);
    data[3] = 2; // response data format
    data[4] = static_cast<uint8_t>(data.size() - 5);
    data[7] = 2; // CmdQue
    putPadded(data, 8, 8, device.is.vendor);
    putPadded(data, 16, 16, device.is.model);
    putPadded(data, 32, 4, device.is.revision);
    if (ata) {
        constexpr uint8_t kVersions[] = {0x00, 0x60, 0x03, 0x20, 0x03, 0x00}; // SAM-3, SPC-3, SBC-2
        std::copy(std::begin(kVersions), std::end(kVersions), data.begin() + 58);
    }
    return reply;
}

ScsiReply vitalProductData(const Device &device, uint8_t page)
{
    ScsiReply reply;
    std::optional<std::vector<uint8_t>> data = vpdPage(device.is, page);
    if (!data) {
        return checkCondition(kIllegalRequest, kInvalidField);
    }
    reply.data = *std::move(data);
    return reply;
}

ScsiReply inquiry(const Device &device, std::span<const uint8_t> cdb)
{
    const bool vital = (cdb[1] & 1) != 0;
    if (!vital && cdb[2] != 0) {
        return checkCondition(kIllegalRequest, kInvalidField);
    }
    ScsiReply reply = vital ? vitalProductData(device, cdb[2]) : standardInquiry(device);
    reply.data.resize(std::min<size_t>(reply.data.size(), static_cast<size_t>(cdb[3] << 8 | cdb[4])));
    return reply;
}

struct PassThrough {
    AtaRegisters registers;
    bool returnsRegisters; // CK_COND
    bool transfersIn;
};

PassThrough decodePassThrough(std::span<const uint8_t> cdb)
{
    const bool longForm = cdb[0] == kAtaPassThrough16;
    PassThrough result{};
    result.returnsRegisters = (cdb[2] & 0x20) != 0;
    result.transfersIn = (cdb[2] & 0x03) != 0 && (cdb[2] & 0x08) != 0;
    result.registers = longForm ? AtaRegisters{cdb[4], cdb[6], cdb[8], cdb[10], cdb[12], cdb[13], cdb[14]}
                                : AtaRegisters{cdb[3], cdb[4], cdb[5], cdb[6], cdb[7], cdb[8], cdb[9]};
    return result;
}

// A command without data returns the registers in descriptor format (ATA Return descriptor); one with data, or an
// aborted one, in fixed format with the registers in the information bytes.
std::vector<uint8_t> senseOfRegisters(const AtaReply &ata, bool data, bool fixed)
{
    const AtaRegisters &r = ata.registers;
    if (!ata.failed() && !data && fixed) { // SAT-4: in INFORMATION and COMMAND-SPECIFIC INFORMATION
        return {0x70,     0,        0x01,      ata.error, ata.status, r.device, r.count, 0x0A, 0,
                r.lbaLow, r.lbaMid, r.lbaHigh, 0x00,      0x1D,       0,        0,       0,    0};
    }
    if (!ata.failed() && !data) {
        return {0x72,      0x01, 0x00,    0x1D, 0,        0, 0,        0x0E, 0x09,      0x0C,     0,
                ata.error, 0,    r.count, 0,    r.lbaLow, 0, r.lbaMid, 0,    r.lbaHigh, r.device, ata.status};
    }
    std::vector<uint8_t> sense(18);
    sense[0] = 0x70;
    sense[2] = 0x0B; // ABORTED COMMAND
    sense[7] = 0x0A;
    sense[8] = ata.error;
    sense[9] = data && !ata.failed() ? 0x58 : ata.status; // DRQ is still set at the end of a transfer
    sense[11] = data ? 1 : ata.registers.count;
    return sense;
}

ScsiReply passThrough(Device &device, std::span<const uint8_t> cdb)
{
    if (!device.is.takesAta() || device.is.isIde()) {
        return checkCondition(kIllegalRequest, kInvalidOpcode);
    }
    const PassThrough request = decodePassThrough(cdb);
    const AtaReply ata = ataCommand(device, request.registers);
    ScsiReply reply;
    reply.wholeTransfer = true;
    if (request.transfersIn) {
        reply.data = ata.data;
    }
    if (ata.failed() || request.returnsRegisters) {
        reply.status = 2;
        reply.sense = senseOfRegisters(ata, request.transfersIn, device.is.fixedAtaStatus);
    }
    return reply;
}

size_t commandLength(uint8_t opcode)
{
    constexpr size_t kLengths[] = {6, 10, 10, 6, 16, 12, 6, 6}; // by the operation code's group, SPC-4
    return kLengths[opcode >> 5];
}

} // namespace

ScsiReply checkCondition(uint8_t key, uint8_t asc, uint8_t ascq)
{
    ScsiReply reply;
    reply.status = 2;
    reply.sense.resize(18);
    reply.sense[0] = 0x70;
    reply.sense[2] = key;
    reply.sense[7] = 0x0A;
    reply.sense[12] = asc;
    reply.sense[13] = ascq;
    return reply;
}

std::vector<uint8_t> inDescriptorFormat(std::span<const uint8_t> fixed)
{
    const auto code = static_cast<uint8_t>((fixed[0] & 0x7F) + 2);
    return {code, static_cast<uint8_t>(fixed[2] & 0x0F), fixed[12], fixed[13], 0, 0, 0, 0};
}

RequestKind kindOfScsi(std::span<const uint8_t> cdb)
{
    const uint8_t opcode = cdb.empty() ? 0xFF : cdb[0];
    if ((opcode == kAtaPassThrough16 && cdb.size() >= 16) || (opcode == kAtaPassThrough12 && cdb.size() >= 12)) {
        const AtaRegisters registers = decodePassThrough(cdb).registers;
        RequestKind kind = kindOfAta(registers.command, registers.features);
        kind.scsi = true;
        return kind;
    }
    switch (opcode) {
    case kTestUnitReady:
        return {Kind::testUnitReady, false, true};
    case kRequestSense:
        return {Kind::requestSense, false, true};
    case kInquiry:
        return {Kind::inquiry, false, true};
    case kModeSelect6:
    case kModeSelect10:
        return {Kind::modeSelect, false, true};
    case kModeSense6:
    case kModeSense10:
        return {Kind::modeSense, false, true};
    case kLogSense:
        return {Kind::logSense, false, true};
    default:
        return {Kind::other, false, true};
    }
}

ScsiReply scsiCommand(Device &device, std::span<const uint8_t> cdb, std::span<const uint8_t> dataOut)
{
    if (cdb.empty() || cdb.size() < commandLength(cdb[0])) {
        return checkCondition(kIllegalRequest, kInvalidOpcode);
    }
    const Kind kind = kindOfScsi(cdb).own;
    ScsiReply reply;
    if (device.unitAttention && kind != Kind::inquiry && kind != Kind::requestSense) {
        device.unitAttention = false;
        reply = checkCondition(6, 0x2A, 0x01); // UNIT ATTENTION: mode parameters changed
    } else if (cdb[0] == kAtaPassThrough16 || cdb[0] == kAtaPassThrough12) {
        reply = passThrough(device, cdb);
    } else if (kind == Kind::inquiry) {
        reply = inquiry(device, cdb);
    } else if (kind != Kind::testUnitReady) {
        reply = pageCommand(device, cdb, dataOut);
    }
    const bool fixed = !reply.sense.empty() && (reply.sense[0] & 0x7E) == 0x70;
    if (device.is.descriptorSense && !device.is.ata && fixed) {
        reply.sense = inDescriptorFormat(reply.sense);
    }
    device.lastSense = reply.sense;
    return reply;
}

} // namespace sim

// SPDX-License-Identifier: Apache-2.0
// ATA commands through a SCSI layer (SAT-2, ATA PASS-THROUGH): what is sent, its bytes, and what the reply means. Pure.
#pragma once

#include "devcmd/transport/sense.h"
#include "devcmd/transport/transport.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>

// SAT command selectors; other values are not supported.
constexpr int SATCMD_SMART_ENABLE = 0;
constexpr int SATCMD_SMART_DISABLE = 1;
constexpr int SATCMD_SMART_STATUS = 5;
constexpr int SATCMD_SMART_STATUS_CHECK = 6;
constexpr int SATCMD_IDENTIFY = 10;
constexpr int SATCMD_IDENTIFY_PACKET = 11;

// Sends an ATA command: 0; 1 when the SMART threshold is exceeded (only SATCMD_SMART_STATUS_CHECK); -1 on failure. data
// holds 512 bytes for the IDENTIFY selectors; unused is ignored.
int sat_ata_cmd_interface(int fd, int command, int unused, uint8_t *data);
// Whether IDENTIFY (PACKET) DEVICE through SAT succeeds. Returns 0, or -1.
int sat_ata_pass_through(int fd, int packet);

namespace tavstrg {

// ATA registers and the flags of the pass-through. The defaults are a SMART command that transfers no data.
struct SatCommand {
    size_t cdbLength = 16; // 16 or 12
    uint8_t protocol = 3;  // 3 non-data, 4 PIO data-in
    uint8_t features = 0;
    uint8_t command = 0xB0; // SMART
    uint8_t count = 0;      // SECTOR COUNT
    uint8_t lbaLow = 0;
    uint8_t lbaMid = 0;
    uint8_t lbaHigh = 0;
    bool ckCond = false;     // CK_COND: return the registers in the sense data
    bool tDir = true;        // T_DIR: data come from the device
    bool byteBlock = true;   // BYTE_BLOCK: the length counts blocks, not bytes
    uint8_t tLength = 0;     // T_LENGTH: 0 no data, 2 length in SECTOR COUNT
    uint16_t dataLength = 0; // bytes from the device
};

constexpr uint16_t kIdentifyLength = 512; // bytes of IDENTIFY (PACKET) DEVICE data
// The signature that distinguishes a SMART command from others (ATA8-ACS), also the "good" answer of SMART RETURN
// STATUS.
constexpr uint8_t kSmartLbaMid = 0x4F;
constexpr uint8_t kSmartLbaHigh = 0xC2;
constexpr uint8_t kSmartExceededLbaMid = 0xF4;
constexpr uint8_t kSmartExceededLbaHigh = 0x2C;

constexpr SatCommand kSatSmartEnable{.features = 0xD8, .lbaLow = 1, .lbaMid = kSmartLbaMid, .lbaHigh = kSmartLbaHigh};
constexpr SatCommand kSatSmartDisable{.features = 0xD9, .lbaLow = 1, .lbaMid = kSmartLbaMid, .lbaHigh = kSmartLbaHigh};
constexpr SatCommand kSatSmartStatus{
    .features = 0xDA, .lbaMid = kSmartLbaMid, .lbaHigh = kSmartLbaHigh, .ckCond = true};
constexpr SatCommand kSatIdentify{
    .protocol = 4, .command = 0xEC, .count = 1, .tLength = 2, .dataLength = kIdentifyLength};
constexpr SatCommand kSatIdentifyPacket{
    .protocol = 4, .command = 0xA1, .count = 1, .tLength = 2, .dataLength = kIdentifyLength};

// The command of a SATCMD_ selector; none for the values that are not supported.
constexpr std::optional<SatCommand> satCommandOf(int selector)
{
    switch (selector) {
    case SATCMD_SMART_ENABLE:
        return kSatSmartEnable;
    case SATCMD_SMART_DISABLE:
        return kSatSmartDisable;
    case SATCMD_SMART_STATUS:
    case SATCMD_SMART_STATUS_CHECK:
        return kSatSmartStatus;
    case SATCMD_IDENTIFY:
        return kSatIdentify;
    case SATCMD_IDENTIFY_PACKET:
        return kSatIdentifyPacket;
    default:
        return std::nullopt;
    }
}

constexpr uint8_t satProtocolByte(const SatCommand &c)
{
    return static_cast<uint8_t>(c.protocol << 1); // EXTEND 0
}

constexpr uint8_t satFlagsByte(const SatCommand &c)
{
    return static_cast<uint8_t>(c.tLength | c.byteBlock << 2 | c.tDir << 3 | c.ckCond << 5); // OFF_LINE 0
}

constexpr std::array<uint8_t, 16> ataPassThrough16(const SatCommand &c)
{
    return {
        0x85,               // ATA PASS-THROUGH(16)
        satProtocolByte(c), //
        satFlagsByte(c),    //
        0,                  // FEATURES, high byte
        c.features,         //
        0,                  // SECTOR COUNT, high byte
        c.count,            //
        0,                  // LBA low, high byte
        c.lbaLow,           //
        0,                  // LBA mid, high byte
        c.lbaMid,           //
        0,                  // LBA high, high byte
        c.lbaHigh,          //
        0,                  // DEVICE
        c.command,          //
        0,                  // CONTROL
    };
}

// Hazard: on an optical drive the operation code of this form is BLANK, which erases the medium. Nothing selects it.
constexpr std::array<uint8_t, 12> ataPassThrough12(const SatCommand &c)
{
    return {
        0xA1,               // ATA PASS-THROUGH(12)
        satProtocolByte(c), //
        satFlagsByte(c),    //
        c.features,         //
        c.count,            // SECTOR COUNT
        c.lbaLow,           //
        c.lbaMid,           //
        c.lbaHigh,          //
        0,                  // DEVICE
        c.command,          //
        0,                  // reserved
        0,                  // CONTROL
    };
}

struct SatCdb {
    std::array<uint8_t, 16> bytes{};
    size_t length = 0;
};

constexpr SatCdb satCdb(const SatCommand &c)
{
    SatCdb cdb;
    const auto take = [&cdb](const auto &bytes) {
        std::copy(bytes.begin(), bytes.end(), cdb.bytes.begin());
        cdb.length = bytes.size();
    };
    if (c.cdbLength == 12) {
        take(ataPassThrough12(c));
    } else {
        take(ataPassThrough16(c));
    }
    return cdb;
}

static_assert(ataPassThrough16(kSatSmartEnable) ==
              std::array<uint8_t, 16>{0x85, 0x06, 0x0C, 0, 0xD8, 0, 0, 0, 1, 0, 0x4F, 0, 0xC2, 0, 0xB0, 0});
static_assert(ataPassThrough16(kSatSmartStatus)[2] == 0x2C && ataPassThrough16(kSatIdentify)[2] == 0x0E);
static_assert(ataPassThrough12(kSatIdentify) ==
              std::array<uint8_t, 12>{0xA1, 0x08, 0x0E, 0, 1, 0, 0, 0, 0, 0xEC, 0, 0});
static_assert(satCdb(kSatIdentify).length == 16 && satCdb({.cdbLength = 12}).length == 12);

struct SatTransfer {
    int32_t direction;
    size_t length; // bytes
};

// Deliberate: a command that sends data would announce none; there is no such command.
constexpr SatTransfer satTransfer(const SatCommand &c)
{
    if (c.tLength == 0) {
        return {DIR_NONE, 0};
    }
    return c.tDir ? SatTransfer{DIR_FROM_DEVICE, c.dataLength} : SatTransfer{DIR_TO_DEVICE, 0};
}

// Descriptor in which a SAT layer returns the ATA registers (SAT-2, 12.2.6).
constexpr uint8_t kAtaReturnDescriptor = 0x09;

// The bytes of an ATA Return descriptor that count, of those that are there: its own length, taken as 12 to 14.
constexpr std::span<const uint8_t> ataReturnBytes(std::span<const uint8_t> descriptor)
{
    if (descriptor.size() < 2) {
        return {};
    }
    const size_t length = std::clamp<size_t>(descriptor[1] + size_t{2}, 12, 14);
    return descriptor.first(std::min(length, descriptor.size()));
}

enum class SatOutcome {
    kDone,
    kSmartGood,
    kSmartExceeded,
    kSmartUnknown,
    kStatusError, // the device reports the end of the command without being asked for it
};

// LBA mid and LBA high as SMART RETURN STATUS leaves them.
constexpr SatOutcome judgeSmartStatus(std::span<const uint8_t> ataReturn)
{
    if (ataReturn.size() < 12) {
        return SatOutcome::kSmartUnknown;
    }
    const uint8_t lbaMid = ataReturn[9];
    const uint8_t lbaHigh = ataReturn[11];
    if (lbaMid == kSmartLbaMid && lbaHigh == kSmartLbaHigh) {
        return SatOutcome::kSmartGood;
    }
    if (lbaMid == kSmartExceededLbaMid && lbaHigh == kSmartExceededLbaHigh) {
        return SatOutcome::kSmartExceeded;
    }
    return SatOutcome::kSmartUnknown;
}

// Outcome of a command whose transport succeeded. sense: the decoded sense data, null if there was none. ataReturn:
// ataReturnBytes of the ATA Return descriptor, empty if there was none; a requested status is then ignored.
// Deliberate: a disk that rejects the command with other sense data counts as having done it.
constexpr SatOutcome judgeSatReply(int selector, bool ckCond, const SenseInfo *sense,
                                   std::span<const uint8_t> ataReturn)
{
    if (sense == nullptr || ataReturn.empty()) {
        return SatOutcome::kDone;
    }
    if (ckCond) {
        return selector == SATCMD_SMART_STATUS_CHECK ? judgeSmartStatus(ataReturn) : SatOutcome::kDone;
    }
    // NO SENSE or RECOVERED ERROR with ATA PASS THROUGH INFORMATION AVAILABLE
    const bool descriptorFormat = sense->response_code == 0x72 || sense->response_code == 0x73;
    const bool informs = sense->sense_key <= 1 && sense->asc == 0x00 && sense->ascq == 0x1D;
    return descriptorFormat && informs ? SatOutcome::kStatusError : SatOutcome::kDone;
}

} // namespace tavstrg

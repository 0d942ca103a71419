// SPDX-License-Identifier: Apache-2.0
#include "devcmd/transport/power_mode.h"

#include "devcmd/transport/ata_exchange.h"
#include "devcmd/transport/ata_return.h"
#include "devcmd/transport/pages_command.h"
#include "devcmd/transport/sense.h"
#include "devcmd/transport/transport.h"

#include <array>

using namespace tavstrg;

namespace {

constexpr size_t kFixedThroughCode = 13; // bytes of fixed-format sense data up to the additional sense code

PowerMode askAta(int fd)
{
    const AtaReply reply = exchangeAta(fd, kSatCheckPowerMode);
    const std::optional<AtaRegisters> registers = reply.transport == 0 ? ataRegistersOf(reply.sense()) : std::nullopt;
    return registers && ataSucceeded(*registers) ? powerModeOfCount(registers->count) : PowerMode::kUnknown;
}

// Sense data are the data of this command; those of the command itself report that it failed.
PowerMode askScsi(int fd)
{
    Cdb6 cdb = requestSenseCdb();
    std::array<uint8_t, kPageBuffer> data{};
    std::array<uint8_t, kSenseLength> sense{};
    ScsiIoRequest request = scsiRequest(cdb, {DIR_FROM_DEVICE, data}, sense);
    if (_sg_IoctlCommon(fd, &request) != 0 || request.scsi_status != 0) {
        return PowerMode::kUnknown;
    }
    return powerModeOfSense(data);
}

} // namespace

PowerMode tavstrg::powerModeOfSense(std::span<const uint8_t> data)
{
    SenseInfo info{};
    switch (decodeSense(data, info)) {
    case SenseFormat::kFixed:
        return data.size() < kFixedThroughCode ? PowerMode::kUnknown : powerModeOfCode(info.asc, info.ascq);
    case SenseFormat::kDescriptor:
        return powerModeOfCode(info.asc, info.ascq);
    case SenseFormat::kNone:
    case SenseFormat::kUnknown:
        break;
    }
    return PowerMode::kUnknown;
}

PowerMode tavstrg::askPowerMode(int fd, PowerQuestion question)
{
    return question == PowerQuestion::kAta ? askAta(fd) : askScsi(fd);
}

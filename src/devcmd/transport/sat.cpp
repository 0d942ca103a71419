// SPDX-License-Identifier: Apache-2.0
#include "devcmd/transport/ata_exchange.h"
#include "devcmd/transport/sat_command.h"
#include "devcmd/transport/sense.h"
#include "runtime/trace.h"

#include <array>

using namespace tavstrg;

namespace {

// The bytes of the ATA Return descriptor, from the named sense routines.
std::span<const uint8_t> findAtaReturn(const AtaReply &reply)
{
    const uint8_t *const found = scsi_find_sense_data(reply.senseBytes.data(), reply.senseLength, kAtaReturnDescriptor);
    if (found == nullptr) {
        return {};
    }
    return ataReturnBytes({found, reply.senseBytes.data() + reply.senseLength});
}

} // namespace

int sat_ata_cmd_interface(int fd, int command, int, uint8_t *data)
{
    const TraceScope scope;
    TRACE(kDetail, "_IN_ command=[%d]", command);
    if (fd < 0) {
        return TRACED(-1, kFailure, "_OUT_ Invalid parameters");
    }
    const std::optional<SatCommand> sat = satCommandOf(command);
    if (!sat) {
        return TRACED(-1, kFailure, "_OUT_ No support command[%d]", command);
    }
    if (sat->dataLength > 0 && data == nullptr) {
        return TRACED(-1, kFailure, "_OUT_ Invalid parameters");
    }
    const AtaReply reply = exchangeAta(fd, *sat, data);
    if (reply.transport != 0) {
        return TRACED(-1, kFailure, "_OUT_ ATA passthrough failed");
    }
    SenseInfo info{};
    const bool decoded = scsi_chk_sense_data_format(reply.senseBytes.data(), reply.senseLength, &info) == 0;
    const std::span<const uint8_t> ataReturn = decoded ? findAtaReturn(reply) : std::span<const uint8_t>{};
    switch (judgeSatReply(command, sat->ckCond, decoded ? &info : nullptr, ataReturn)) {
    case SatOutcome::kSmartGood:
        return TRACED(0, kDetail, "_OUT_ SMART self-test has completed without error,good status");
    case SatOutcome::kSmartExceeded:
        return TRACED(1, kDetail, "_OUT_ The device has detected a threshold exceeded condition");
    case SatOutcome::kSmartUnknown:
        return TRACED(-1, kFailure, "_OUT_ The self-test returns unknown status");
    case SatOutcome::kStatusError:
        return TRACED(-1, kFailure, "_OUT_ check status error. key=[%x] code=[%d] qualifier=[%x]", info.sense_key,
                      info.asc, info.ascq);
    case SatOutcome::kDone:
        break;
    }
    return TRACED(0, kDetail, "_OUT_ (0)");
}

int sat_ata_pass_through(int fd, int packet)
{
    const TraceScope scope;
    TRACE(kDetail, "_IN_ packet=[%d]", packet);
    std::array<uint8_t, kIdentifyLength> data{};
    const int command = packet == 0 ? SATCMD_IDENTIFY : SATCMD_IDENTIFY_PACKET;
    if (sat_ata_cmd_interface(fd, command, 0, data.data()) != 0) {
        TRACE(kFailure, "sat_ata_cmd_interface failed");
        return TRACED(-1, kFailure, "_OUT_ ret=[%d]", -1);
    }
    TRACE(kDetail, "sat_ata_cmd_interface success");
    return TRACED(0, kDetail, "_OUT_ ret=[%d]", 0);
}

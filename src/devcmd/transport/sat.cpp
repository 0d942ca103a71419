// SPDX-License-Identifier: Apache-2.0
#include "devcmd/transport/sat_command.h"
#include "devcmd/transport/sense.h"
#include "devcmd/transport/transport.h"
#include "runtime/trace.h"

#include <algorithm>
#include <array>
#include <cstring>

using namespace tavstrg;

namespace {

struct SatReply {
    std::array<uint8_t, kSenseLength> sense{};
    size_t senseLength = 0;
};

// Transport result of _sg_IoctlCommon.
int sendSat(int fd, const SatCommand &command, uint8_t *data, SatReply &reply)
{
    SatCdb cdb = satCdb(command);
    const SatTransfer transfer = satTransfer(command);
    if (transfer.direction == DIR_FROM_DEVICE) {
        std::memset(data, 0, transfer.length);
    }
    uint8_t *const place = transfer.direction == DIR_NONE ? nullptr : data;
    ScsiIoRequest request =
        scsiRequest({cdb.bytes.data(), cdb.length}, {transfer.direction, {place, transfer.length}}, reply.sense);
    const int result = _sg_IoctlCommon(fd, &request);
    reply.senseLength = std::min(request.sense_len, reply.sense.size());
    return result;
}

// The bytes of the ATA Return descriptor, from the named sense routines.
std::span<const uint8_t> findAtaReturn(const SatReply &reply)
{
    const uint8_t *const found = scsi_find_sense_data(reply.sense.data(), reply.senseLength, kAtaReturnDescriptor);
    if (found == nullptr) {
        return {};
    }
    return ataReturnBytes({found, reply.sense.data() + reply.senseLength});
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
    SatReply reply;
    if (sendSat(fd, *sat, data, reply) != 0) {
        return TRACED(-1, kFailure, "_OUT_ ATA passthrough failed");
    }
    SenseInfo info{};
    const bool decoded = scsi_chk_sense_data_format(reply.sense.data(), reply.senseLength, &info) == 0;
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

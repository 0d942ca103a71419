// SPDX-License-Identifier: Apache-2.0
#include "devcmd/transport/ata_exchange.h"

#include "devcmd/transport/ata_return.h"

#include <algorithm>
#include <cstring>

using namespace tavstrg;

AtaReply tavstrg::exchangeAta(int fd, const SatCommand &command, uint8_t *data)
{
    SatCdb cdb = satCdb(command);
    const SatTransfer transfer = satTransfer(command);
    if (transfer.direction == DIR_FROM_DEVICE) {
        std::memset(data, 0, transfer.length);
    }
    uint8_t *const place = transfer.direction == DIR_NONE ? nullptr : data;
    AtaReply reply;
    ScsiIoRequest request =
        scsiRequest({cdb.bytes.data(), cdb.length}, {transfer.direction, {place, transfer.length}}, reply.senseBytes);
    reply.transport = _sg_IoctlCommon(fd, &request);
    reply.scsiStatus = request.scsi_status;
    reply.senseLength = std::min(request.sense_len, reply.senseBytes.size());
    return reply;
}

bool tavstrg::ataDone(const AtaReply &reply)
{
    if (reply.transport != 0) {
        return false;
    }
    if (reply.scsiStatus == 0) {
        return true;
    }
    const std::optional<AtaRegisters> registers = ataRegistersOf(reply.sense());
    SenseInfo info{};
    static_cast<void>(decodeSense(reply.sense(), info));
    return registers && ataSucceeded(*registers) && info.sense_key <= 1;
}

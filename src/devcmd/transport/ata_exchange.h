// SPDX-License-Identifier: Apache-2.0
// One ATA command through a SCSI layer, and all that came back.
#pragma once

#include "devcmd/transport/sat_command.h"
#include "devcmd/transport/transport.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>

namespace tavstrg {

// The answer to a command.
struct AtaReply {
    int transport = -1;     // as _sg_IoctlCommon returns it: 0, or a negative errno value
    uint8_t scsiStatus = 0; // not judged
    std::array<uint8_t, kSenseLength> senseBytes{};
    size_t senseLength = 0; // bytes that are there

    std::span<const uint8_t> sense() const { return {senseBytes.data(), senseLength}; }
};

// Sends a command on an open node. data has room for what the command transfers, and is zeroed before; null for one
// that transfers nothing.
AtaReply exchangeAta(int fd, const SatCommand &command, uint8_t *data = nullptr);

// Whether the transport worked and the command was done: GOOD, or sense data whose registers report success.
bool ataDone(const AtaReply &reply);

} // namespace tavstrg

// SPDX-License-Identifier: Apache-2.0
// One SCSI command and what came back.
#pragma once

#include "devcmd/transport/sense.h"
#include "devcmd/transport/transport.h"
#include "disks/bytes.h"

#include <array>
#include <span>

namespace tavstrg::disks {

struct Exchange {
    int error = 0; // errno value of a transport that failed
    uint8_t status = 0;
    std::array<uint8_t, kSenseLength> senseBytes{};
    size_t senseLength = 0;

    Bytes sense() const { return {senseBytes.data(), senseLength}; }
    bool delivered() const { return error == 0; }
    // The device did what it was asked for: GOOD, or sense data that only inform.
    bool succeeded() const;
};

// Sends a command that transfers nothing, or reads into data, which is zero-filled first.
Exchange exchangeScsi(int fd, std::span<const uint8_t> cdb, std::span<uint8_t> data = {});

} // namespace tavstrg::disks

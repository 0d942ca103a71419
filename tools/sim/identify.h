// SPDX-License-Identifier: Apache-2.0
// The 512 bytes of an ATA disk's IDENTIFY data.
#pragma once

#include "sim/description.h"

#include <array>
#include <cstdint>

namespace sim {

using IdentifyBlock = std::array<uint8_t, 512>;

// As the device sends it (ACS-3): 16-bit little-endian words, texts with the bytes of each word swapped, blank-padded.
IdentifyBlock identifyBlock(const DeviceDescription &device, bool smartEnabled);
// As HDIO_GET_IDENTITY hands it out: texts readable; the old IDE driver also replaces their trailing blanks by zeros.
IdentifyBlock identityForIoctl(const DeviceDescription &device, bool smartEnabled);

} // namespace sim

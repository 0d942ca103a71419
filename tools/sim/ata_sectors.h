// SPDX-License-Identifier: Apache-2.0
// Sectors that an ATA disk sends: IDENTIFY data, SMART data and logs.
#pragma once

#include "sim/description.h"

#include <array>
#include <cstdint>
#include <vector>

namespace sim {

using IdentifyBlock = std::array<uint8_t, 512>;

// As the device sends it (ACS-3): 16-bit little-endian words, texts with the bytes of each word swapped, blank-padded.
IdentifyBlock identifyBlock(const DeviceDescription &device, bool smartEnabled);
// As HDIO_GET_IDENTITY returns it: texts readable; the old IDE driver also replaces their trailing blanks by zeros.
IdentifyBlock identityForIoctl(const DeviceDescription &device, bool smartEnabled);

std::vector<uint8_t> smartData(const SmartDescription &smart);
std::vector<uint8_t> smartThresholds(const SmartDescription &smart);
// The log at an address: the log directory (0), the summary error log (1) or the self-test log (6), both without an
// entry. Empty if there is no such log.
std::vector<uint8_t> smartLog(uint8_t address);

constexpr uint8_t kStatisticsLog = 4; // address of the device statistics

// The whole general-purpose log at an address (READ LOG EXT): the directory (0), or device statistics. Empty if
// there is no such log.
std::vector<uint8_t> generalLog(const DeviceDescription &device, uint8_t address);

} // namespace sim

// SPDX-License-Identifier: Apache-2.0
// The sectors that an ATA disk's SMART commands hand out.
#pragma once

#include "sim/description.h"

#include <cstdint>
#include <vector>

namespace sim {

std::vector<uint8_t> smartData(const SmartDescription &smart);
std::vector<uint8_t> smartThresholds(const SmartDescription &smart);
// The log at an address: its directory (0), the summary error log (1) and the self-test log (6), these two without an
// entry. Empty: there is no such log.
std::vector<uint8_t> smartLog(uint8_t address);

} // namespace sim

// SPDX-License-Identifier: Apache-2.0
// How the disks of a machine are, counted.
#pragma once

#include "tavstrg/colour.h"
#include "tavstrg/inventory.h"

#include <cstddef>
#include <string>

namespace tool {

struct Health {
    bool smartHandled = true; // by the configured SMART mode; without it no disk is asked
    size_t disks = 0;
    size_t failurePredicted = 0;
    size_t statusNotReadable = 0;
    size_t leastEndurance = 0; // drives at level 1
    size_t littleEndurance = 0;
    size_t lifeSpanNotRead = 0;
};

Health healthOf(const Inventory &inventory);

// "2 of 8 disks predict failure, life span of 1 drive not read"; empty for a machine without disks.
std::string healthWords(const Health &health);

// The worst that is to be said of one disk: a predicted failure and the least endurance are failures; little endurance
// and what could not be read are warnings.
Mark markOf(const HardDisk &disk);
Mark markOf(const Health &health);

} // namespace tool

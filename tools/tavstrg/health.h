// SPDX-License-Identifier: Apache-2.0
// Health of a machine's disks: how many are in which state, and which need attention.
#pragma once

#include "tavstrg/colour.h"
#include "tavstrg/inventory.h"

#include <cstddef>
#include <string>
#include <vector>

namespace tool {

struct Health {
    int smartMode = kSmartHandled;
    size_t disks = 0;
    size_t good = 0;
    size_t failurePredicted = 0;
    size_t statusNotReadable = 0;
    size_t notAsked = 0;
    size_t notSupported = 0;
    size_t unconfirmed = 0;
    size_t leastEndurance = 0; // drives at level 1
    size_t littleEndurance = 0;
    size_t lifeSpanNotRead = 0;
    std::vector<std::string> failing; // names of the disks in the states that need attention
    std::vector<std::string> notReadable;
    std::vector<std::string> leastLeft;
    std::vector<std::string> littleLeft;
    std::vector<std::string> wearNotRead;
};

Health healthOf(const Inventory &inventory);

// "sdb (0:0:1:0, serial NWK7713101)": what is known of where a disk is and which it is.
std::string diskName(const DiskView &view);

struct HealthItem {
    std::string text; // "1 of 8 disks predicts failure: sdb (0:0:1:0, serial NWK7713101)"
    Mark mark = Mark::none;
};

// The worst first; none for a machine without disks.
std::vector<HealthItem> healthItems(const Health &health);

// The worst state of one disk: a predicted failure and the least endurance are failures; little endurance and what
// could not be read are warnings.
Mark markOf(const HardDisk &disk);

} // namespace tool

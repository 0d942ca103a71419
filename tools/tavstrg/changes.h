// SPDX-License-Identifier: Apache-2.0
// What differs between two inventories of one machine.
#pragma once

#include "tavstrg/inventory.h"

#include <string>
#include <vector>

namespace tool {

struct Change {
    bool added = false;  // else removed
    std::string kind;    // "controller", "hard disk", "tape drive", ...
    std::string name;    // vendor and model, or a controller's driver; printable
    std::string serial;  // printable; empty when not known
    std::string node;    // "sda"; empty when not known
    std::string address; // as the tree shows it; empty for a controller
    std::optional<unsigned> host;
};

// What was added and what was removed. A device is the same if its kind, name and serial number are, or, without a
// serial number, if it is also at the same address: a disk that only moved or got another number is no change.
std::vector<Change> changesBetween(const Inventory &before, const Inventory &after);

// "added hard disk sdc (0:0:2:0, ATA EXAMPLE, serial S1); removed controller of host 3 (ahci)"; empty without changes.
std::string changeWords(const std::vector<Change> &changes);

} // namespace tool

// SPDX-License-Identifier: Apache-2.0
// Everything as text for people.
#pragma once

#include "tavstrg/catalogue.h"
#include "tavstrg/inventory.h"

#include <string>
#include <vector>

namespace tool {

struct TextStyle {
    size_t width = 0;     // columns of the terminal, in which every line fits; 0: lines are as long as they are
    bool utf8 = false;    // lines of the tree as box characters instead of ASCII
    bool verbose = false; // geometry, driver versions, numbers of the records, monitoring
    bool colour = false;
};

// The tree: the machine, its controllers, below each its devices, one line a device, then those without a controller;
// the totals; and the health of the disks, in which each disk that needs attention is named. Such a disk is marked "!"
// or, where its failure is predicted or its endurance used up, "!!", also without colour.
std::string inventoryText(const Inventory &inventory, const TextStyle &style);

// Property and value in columns, behind a code its word and behind a number its unit, as the schema has them; a blank
// line between instances.
std::string instancesText(const std::string &className, const std::vector<broker::Instance> &instances, size_t width);

// What a method returned; "" for a method that returns nothing.
std::string returnValuesText(const std::vector<broker::Value> &values);

std::string catalogueText(const std::vector<ClassEntry> &classes, size_t width);

} // namespace tool

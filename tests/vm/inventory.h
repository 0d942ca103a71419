// SPDX-License-Identifier: Apache-2.0
// The inventory expected from the machine's facts, and its comparison with the provider's.
#pragma once

#include "broker/broker.h"
#include "vm/facts.h"

#include <map>
#include <string>

namespace vm {

using Row = std::map<std::string, std::string>; // property, its value as text
using Rows = std::map<std::string, Row>;        // by the identity of an instance within its class

struct Inventory {
    Rows controllers, devices, hardDisks, cdroms, tapes, opticalMemories, misc, lifeSpans;
};

// The managed hosts by number, and their devices in the kernel's order. The unwatched disk is left out.
Inventory expectedInventory(const Facts &facts);

// Compares every property of every instance of the device and controller classes, and the totals.
void compareInventory(broker::Broker &broker, const Facts &facts, const std::string &occasion);

// Number of hard disks that the provider has.
size_t hardDisks(broker::Broker &broker);
// Whether one of its SCSI devices has this model.
bool hasModel(broker::Broker &broker, const std::string &model);

} // namespace vm

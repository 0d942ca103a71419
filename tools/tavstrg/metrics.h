// The inventory as metrics in the Prometheus text format, for the node exporter's textfile collector.
#pragma once

#include "inventory.h"

#include <string>

namespace tool {

// Counts, capacities, SMART states and endurance levels; a disk's vendor, model, firmware, serial number and address
// are labels of one info metric alone, to be joined by the label "disk".
std::string metricsText(const Inventory &inventory);

// Writes a file in one step (a temporary name beside it, then a rename), as the collector needs: it may read at any
// moment. Throws Failure.
void writeWhole(const std::string &path, const std::string &content);

} // namespace tool

// SPDX-License-Identifier: Apache-2.0
// The inventory as metrics, in the Prometheus text format for the node exporter's textfile collector.
#pragma once

#include "tavstrg/inventory.h"

#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace tool {

// A sample's labels in their order.
using Labels = std::vector<std::pair<std::string_view, std::string>>;

struct Sample {
    Labels labels;
    uint64_t value;
};

// All are gauges.
struct Metric {
    std::string name;
    std::string_view help;
    std::vector<Sample> samples;
};

// Counts, capacities, SMART states and endurance levels; a disk's vendor, model, firmware, serial number and address
// are labels of one info metric alone, to be joined by the label "disk".
std::vector<Metric> metricsOf(const Inventory &inventory);

std::string metricsText(const std::vector<Metric> &metrics);

} // namespace tool

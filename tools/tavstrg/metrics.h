// SPDX-License-Identifier: Apache-2.0
// The inventory as metrics, in the Prometheus text format for the node exporter's textfile collector.
#pragma once

#include "tavstrg/inventory.h"

#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace tool {

// A sample's labels in their order.
using Labels = std::vector<std::pair<std::string_view, std::string>>;

struct Sample {
    Labels labels;
    double value;
};

struct Metric {
    std::string name;
    std::string_view help;
    std::vector<Sample> samples;
    bool counter = false; // else a gauge
};

const char *typeOf(const Metric &metric); // "counter" or "gauge"

// Counts, capacities, SMART states, endurance levels, and the collection's time, duration and success. Each sample of a
// disk has its index, serial number and node as labels; its vendor, model, firmware and address are labels of the info
// metric alone.
std::vector<Metric> metricsOf(const Inventory &inventory);

// When the inventory could not be collected: the collection alone, with success 0.
std::vector<Metric> metricsOfFailure(const Collection &collection);

std::string metricsText(const std::vector<Metric> &metrics);

} // namespace tool

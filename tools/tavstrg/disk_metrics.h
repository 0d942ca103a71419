// SPDX-License-Identifier: Apache-2.0
// The disks as metrics: those that docs/METRICS.md defines.
#pragma once

#include "tavstrg/metrics.h"

#include "disks/disk.h"

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace tool {

// A pass over the disks, as it is published.
struct PassFigures {
    bool success = false;                            // of the last pass
    std::optional<double> seconds = {};              // its duration; absent: not known
    tavstrg::disks::Maybe<int64_t> lastSuccess = {}; // end of the last pass that succeeded, seconds since 1970
};

// disks: those of the last pass that succeeded, after a book has been asked for what it knows; without one a sleeping
// disk has no values, and nothing is said of since when. Each sample of a disk has its identity as the label "disk";
// its name and place, which change, are labels of tavstrg_disk_info alone. A disk whose identity another one before
// has too is left out: a series that is there twice makes the exporter refuse all of them.
std::vector<Metric> diskMetrics(std::span<const tavstrg::disks::Disk> disks, const PassFigures &pass);

// The same as Prometheus text, for a file that the node exporter reads (see writeWhole).
std::string diskMetricsText(std::span<const tavstrg::disks::Disk> disks, const PassFigures &pass);

} // namespace tool

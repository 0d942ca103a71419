// SPDX-License-Identifier: Apache-2.0
// The columns of "tavstrg disks": one description serves the table, its order, CSV and the page of one disk.
#pragma once

#include "disks/disk.h"

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace tool {

using tavstrg::disks::Disk;

struct DiskColumn {
    std::string_view name;                      // as it is given: "MEDIA-ERR"
    std::string_view words;                     // what it is, for one disk's page
    bool number;                                // aligned to the right
    std::string (*text)(const Disk &);          // for people; empty where the disk does not report it
    std::string (*value)(const Disk &);         // for CSV: numbers without a unit; null: the text
    std::optional<double> (*key)(const Disk &); // of a number, for sorting; null: sorted by text
};

std::span<const DiskColumn> diskColumns();
// In any case; null for a name that is none.
const DiskColumn *findDiskColumn(std::string_view name);
std::vector<std::string> diskColumnNames();

// What is shown unless columns are chosen: 80 columns, and 120 with --wide.
constexpr size_t kTableWidth = 80;
constexpr size_t kWideTableWidth = 120;
std::vector<const DiskColumn *> defaultDiskColumns(bool wide);

// Sorts by a column, ascending; a disk without a value comes last. Equal ones keep their order.
void sortDisks(std::vector<Disk> &disks, const DiskColumn &column);

} // namespace tool

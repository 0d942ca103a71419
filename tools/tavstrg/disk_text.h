// SPDX-License-Identifier: Apache-2.0
// Disks as text for people, and as CSV.
#pragma once

#include "tavstrg/disk_columns.h"
#include "tavstrg/disks.h"

namespace tool {

struct DiskTable {
    std::vector<const DiskColumn *> columns;
    size_t width = 0; // texts are cut so that a line fits; 0: nothing is cut
    bool header = true;
};

// A line for each disk. A disk that needs attention is marked "!", one that fails or does not answer "!!", in a column
// of its own, which is there only where one is.
std::string diskTable(const std::vector<Disk> &disks, const DiskTable &table, const TextStyle &style);

// A header and a line for each disk (RFC 4180). Numbers have no unit, sizes are bytes, times seconds since 1970.
std::string diskCsv(const std::vector<Disk> &disks, const std::vector<const DiskColumn *> &columns, bool header);

// Everything about one disk.
std::string diskPage(const Disk &disk, const TextStyle &style);

// The disks that need attention, with what a person needs to find them; then the summary and the notes.
std::string diskHealthText(const DiskReport &report, const TextStyle &style);

} // namespace tool

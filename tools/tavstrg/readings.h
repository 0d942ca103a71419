// SPDX-License-Identifier: Apache-2.0
// What a SmartStatus of 0 means for each disk, read from the provider's trace: whether the disk was asked, and what
// came of it. The record does not say.
#pragma once

#include "tavstrg/inventory.h"
#include "tavstrg/trace_capture.h"

#include <mutex>
#include <string_view>
#include <vector>

namespace tool {

// Follows the trace line by line; of several collections the last one that began counts.
class SmartReadings {
public:
    void take(int level, std::string_view function, std::string_view text);
    void take(const TraceLine &line) { take(line.level, line.function, line.text); }

    // One for each SCSI hard disk that was met, in the order of their records.
    std::vector<Smart> found() const;

    unsigned passes() const; // of the monitoring thread that have ended

private:
    Smart outcome() const;

    mutable std::mutex guard_;
    std::vector<Smart> found_;
    unsigned passes_ = 0;
    // Of the disk whose turn it is.
    bool asked_ = false;
    bool notSupported_ = false;
    bool readingStatus_ = false; // between begin and end of the routine that reads it
    bool statusRead_ = false;
    bool statusFailed_ = false;
};

// Gives each disk its reading; nothing where the number of disks is another than that of the readings.
void setReadings(Inventory &inventory, const std::vector<Smart> &found);

} // namespace tool

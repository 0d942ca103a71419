// SPDX-License-Identifier: Apache-2.0
// What happened to the disks between two passes. Pure: no I/O, no trace.
#pragma once

#include "monitor/disk_book.h"

#include <span>

namespace tavstrg {

constexpr size_t kMostEvents = 1000; // that wait; of more, the oldest are given up

// A disk of this pass.
struct SeenDisk {
    DiskFacts facts;
    bool asked;          // false: smartStatus says nothing
    int16_t smartStatus; // 0 good, 1 failing, else unreadable
};

// Turns the book of the last pass into that of this one, with the events that are still on their way and those of this
// pass; events that are done are left out. Without a book (first), no disk counts as added. Returns false, with next
// not to be used, if memory is short.
//
// A disk is the one with the same serial number; else with the same worldwide name; else, if one of the two has
// neither, the one at the same address with the same model. Two entries of one serial number are two paths to one disk.
// A disk that is gone and a new one are a replacement if they have the same address, or if they are on the same
// controller and as many disks of it are gone as are new.
bool compareDisks(const DiskBook &last, bool first, std::span<const SeenDisk> seen, DiskBook &next);

// Whether a file of the one has to be replaced by the other's.
bool differs(const DiskBook &last, const DiskBook &next);

} // namespace tavstrg

// SPDX-License-Identifier: Apache-2.0
// The machines on which the programs are compared: SATA disks with SMART on.
#pragma once

#include <string>

namespace compare {

struct Disk {
    std::string node; // "/dev/sda"
    std::string model, serial;
};
Disk diskOf(int number); // 0-based

// Values of every disk's attributes 5 and 9, for checking what a program has read.
constexpr int kReallocatedThreshold = 10;
constexpr int kPowerOnHours = 4242;

// Description (docs/SIMULATOR.md) of the disks first to first + number - 1, all managed, perHost on each host adapter.
// Each command that the disk itself has to answer takes latencyMs. failing: number of a disk that predicts its failure;
// -1: none.
std::string machineOf(int first, int number, int perHost, int latencyMs, int failing = -1);

// The same machine with a text in the administrator's file options.inf; without that file if the text is empty.
std::string withOptions(const std::string &machine, const std::string &options);

} // namespace compare

// SPDX-License-Identifier: Apache-2.0
// The disks of the machine, whatever their bus: "tavstrg disks", "disk", "health", "metrics" and "report". They need no
// provider and no agent.
#pragma once

#include "tavstrg/arguments.h"
#include "tavstrg/commands.h"
#include "tavstrg/inventory.h"
#include "tavstrg/text.h"

#include "disks/book/book.h"
#include "disks/disk.h"

#include <string>
#include <vector>

namespace tool {

using tavstrg::disks::Disk;
using tavstrg::disks::HealthState;

// Exit statuses of "tavstrg health" beyond those of every command.
constexpr int kDiskWarns = 3;
constexpr int kDiskFails = 4; // or does not answer

struct DiskReport {
    std::string machine;            // file name of the simulated machine; empty: this one
    std::vector<Disk> disks;        // in the kernel's order
    std::string explanation;        // why there is no disk; empty where there is one
    std::vector<std::string> notes; // what could not be seen, and why
    Collection collection;          // when they were asked, and how long it took; from a book: when it was saved
    bool permitted = true; // false: nothing can be said, as no disk can be seen, or asked for want of permission
};

// Finds and asks all disks. Throws Failure if memory is short.
DiskReport collectDisks(const Arguments &arguments);

// All disks with what a book remembers of them; no disk is asked, and the book stays as it is. Throws Failure.
DiskReport savedDisks(const Arguments &arguments);

// Runs one of the commands. Throws Failure.
Outcome runDisks(const Arguments &arguments, const TextStyle &style);

// An event in words, as one line without a stop: "sda, serial S1: failing, predicts its failure".
std::string eventWords(const tavstrg::disks::Event &event);

// Documents: "disks" with the shown ones, "disk" with the disk's SMART attributes, "health" with those that need
// attention.
std::string disksJson(const DiskReport &report, const std::vector<Disk> &shown);
std::string diskJson(const DiskReport &report, const Disk &disk);
std::string diskHealthJson(const DiskReport &report);

// Whether a person or a script should look at a disk in this state.
bool needsAttention(HealthState state);
int statusOfDisks(const std::vector<Disk> &disks); // kDone, kDiskWarns or kDiskFails

// "3 disks: 1 good, 1 failing, 1 unknown".
std::string healthSummary(const std::vector<Disk> &disks);

// The disk of an ID, a node ("/dev/sda", "sda", also of another path) or a serial number that one disk alone has; null
// if there is none.
const Disk *findDisk(const std::vector<Disk> &disks, const std::string &name);

} // namespace tool

// SPDX-License-Identifier: Apache-2.0
// What is compared, and how each is run.
#pragma once

#include "compare/lab.h"

#include <string>
#include <vector>

namespace compare {

enum class Contender {
    collection,       // the provider, resident: one request makes it collect again, SMART on
    sideBySide,       // the same with "side-by-side" in options.inf
    providerProcess,  // the provider in a fresh process that makes one collection
    smartctl,         // smartctl -iHA for each disk, one after the other
    smartctlBare,     // the same with an empty drive database
    smartctlParallel, // smartctl -iHA for each disk, eight at a time (xargs -P8)
    disks,            // the disks engine, resident: one pass over every disk
    disksProcess,     // the same in a fresh process
    smartctlAll,      // smartctl -j -a for each disk, one after the other
    smartctlAll16,    // the same for sixteen disks at a time (xargs -P16)
    smartd,           // smartd -q onecheck over all of them
    smartdStart,      // smartd -q showtests: the same without the check itself
    discovery,        // the provider's discovery alone, in a resident process
    discoveryProcess, // in a fresh process
    inventory,        // as collection, SMART off
    lsscsi,
    lsblk, // lsblk -O
    count
};
constexpr int kContenders = static_cast<int>(Contender::count);

// One place of the comparison: a machine.
struct Place {
    int disks;
    int latencyMs;   // of each command that the disk itself answers
    int perHost = 8; // disks on a host adapter
    auto operator<=>(const Place &) const = default;
};

class Contest {
public:
    // Directories of the build's programs and libraries.
    Contest(Lab &lab, std::string binaries, std::string libraries);

    // Runs a contender and returns the cost of each run. Resident ones run in one process, after a first time that is
    // not counted.
    std::vector<Cost> measure(Contender contender, Place place, int times);
    // System calls of one run. If each disk has a process, one disk's are measured and multiplied.
    long systemCalls(Contender contender, Place place);

    // Throws std::runtime_error if a program does not report what the machine's description says.
    void checkThatAllSeeTheMachine();

private:
    std::string machine(Place place, const char *options = "") const;
    std::string machineOfOne(int disk, int latencyMs) const;
    std::string pathOfOne(const std::string &node, int latencyMs) const;
    Program program(Contender contender, Place place, int requests) const;
    static Program smartctl(Contender contender, const std::string &node);
    Cost smartctlInParallel(Contender contender, Place place);
    std::vector<Cost> resident(Contender contender, Place place, int times);
    void expect(const Program &program, const std::string &machine, int exitStatus,
                const std::vector<std::string> &texts) const;
    Cost once(Contender contender, Place place);

    Lab &lab_;
    std::string binaries_, libraries_;
};

} // namespace compare

// SPDX-License-Identifier: Apache-2.0
// What is compared, and how each is run.
#pragma once

#include "compare/lab.h"

#include <string>
#include <vector>

namespace compare {

enum class Contender {
    collection,       // the provider, resident: one request makes it collect anew, SMART on
    providerProcess,  // the provider in a fresh process that makes one collection
    smartctl,         // smartctl -iHA for each disk, one after the other
    smartd,           // smartd -q onecheck over all of them
    smartdStart,      // smartd -q showtests: the same but for the check itself
    discovery,        // the provider's discovery alone, in a process that goes on
    discoveryProcess, // in a fresh process
    inventory,        // as collection, SMART off
    lsscsi,
    count
};
constexpr int kContenders = static_cast<int>(Contender::count);

// One place of the comparison: a machine with so many disks, each of whose commands takes so long.
struct Place {
    int disks, latencyMs;
    auto operator<=>(const Place &) const = default;
};

class Contest {
public:
    // binaries: the build's directory of programs; library directory beside it.
    Contest(Lab &lab, std::string binaries, std::string libraries);

    // Runs one of them so many times and gives a cost for each. Resident ones do so in one process, after a first time
    // that is not counted.
    std::vector<Cost> measure(Contender contender, Place place, int times);
    // System calls of one run, for which one disk's share is measured where each disk has a process of its own.
    long systemCalls(Contender contender, Place place);

    // Throws std::runtime_error naming what a program has not read as the machine's description says it.
    void checkThatAllSeeTheMachine();

private:
    std::string machine(Place place) const;
    std::string machineOfOne(int disk, int latencyMs) const;
    Program program(Contender contender, Place place, int requests) const;
    Program smartctl(int disk) const;
    std::vector<Cost> resident(Contender contender, Place place, int times);
    void expect(const Program &program, const std::string &machine, int exitStatus,
                const std::vector<std::string> &told) const;
    Cost once(Contender contender, Place place);

    Lab &lab_;
    std::string binaries_, libraries_;
};

} // namespace compare

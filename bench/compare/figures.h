// SPDX-License-Identifier: Apache-2.0
// The measured figures, as tables in Markdown and as lines of JSON.
#pragma once

#include "compare/contenders.h"

#include <map>
#include <string>

namespace compare {

// Medians over the runs of one contender in one place.
struct Figures {
    double wallSeconds = 0, cpuSeconds = 0;       // without the simulated machine; 0: unknown
    double rawWallSeconds = 0, rawCpuSeconds = 0; // with it
    unsigned commands = 0;
    long systemCalls = 0; // 0: not counted here
    long peakKb = 0;
};

class Results {
public:
    void add(Contender contender, Place place, const std::vector<Cost> &costs, long systemCalls);
    // Returns null if it was not measured.
    const Figures *find(Contender contender, Place place) const;
    // All tables in Markdown.
    std::string tables() const;
    std::string jsonLines() const;
    // Prints a line for each goal. Returns whether all are reached.
    bool goals() const;

private:
    double perDisk(Contender contender) const;

    std::map<std::pair<Place, Contender>, Figures> figures_;
};

} // namespace compare

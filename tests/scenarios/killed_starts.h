// SPDX-License-Identifier: Apache-2.0
// Providers on one machine that are killed, one after the other, and what they leave in shared memory.
#pragma once

#include "scenarios/child.h"
#include "scenarios/monitored.h"

#include <atomic>
#include <random>
#include <string>
#include <vector>

namespace scenario {

class KilledStarts {
public:
    explicit KilledStarts(const std::string &options); // text of options.inf; "": there is none
    ~KilledStarts();                                   // removes the segments that are left
    KilledStarts(const KilledStarts &) = delete;
    KilledStarts &operator=(const KilledStarts &) = delete;

    // Starts a provider, which must answer, and kills it.
    void killOneThatAnswers();
    // Kills one at any moment of its life: while it starts, answers, changes, or ends.
    void killOneAtAnyMoment();
    // Segments of all that were killed. After a start that answered there are only those of the last one.
    size_t segmentsLeft();

    static constexpr size_t kSegmentsEach = 5; // configuration, totals, controllers, SCSI devices, hard disks

private:
    struct Progress {
        std::atomic<bool> answered{false};
        char root[256] = {}; // of its machine, to be removed when it is killed
    };
    void kill(bool answering);
    void live(bool answering);

    sim::Machine machine_;
    const std::string data_;
    const std::string work_;
    Shared<Progress> progress_;
    std::vector<pid_t> killed_; // that may have left segments
    std::mt19937 random_{1414};
};

} // namespace scenario

// SPDX-License-Identifier: Apache-2.0
// Measures what the disks engine costs, without the simulated machine under it.
#pragma once

#include "disks/find/find.h"
#include "sim/sim.h"
#include "support/machines.h"

#include <gtest/gtest.h>
#include <sys/resource.h>

#include <algorithm>
#include <chrono>
#include <string>

namespace scenario {

inline double processSeconds()
{
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    const auto seconds = [](const timeval &time) {
        return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6;
    };
    return seconds(usage.ru_utime) + seconds(usage.ru_stime);
}

struct Cost {
    double cpu = 1e9; // seconds, without the simulated machine's
    double clock = 1e9;
};

// The best run counts: other processes use the processors too.
template <class Work> Cost bestOf(int runs, const Work &work)
{
    Cost best;
    sim::measureOwnCpu(true);
    for (int run = 0; run < runs; ++run) {
        const auto began = std::chrono::steady_clock::now();
        const double before = processSeconds() - sim::ownCpuSecondsOfProcess();
        work();
        best.cpu = std::min(best.cpu, processSeconds() - sim::ownCpuSecondsOfProcess() - before);
        best.clock =
            std::min(best.clock, std::chrono::duration<double>(std::chrono::steady_clock::now() - began).count());
    }
    sim::measureOwnCpu(false);
    return best;
}

// Into the test's results.
inline void report(const char *what, const Cost &cost)
{
    testing::Test::RecordProperty(std::string(what) + "CpuMicroseconds", static_cast<int>(cost.cpu * 1e6));
    testing::Test::RecordProperty(std::string(what) + "ClockMicroseconds", static_cast<int>(cost.clock * 1e6));
}

// CPU seconds for finding and naming each disk of a machine.
inline double findingSecondsPerDisk(int number)
{
    using namespace tavstrg::disks;
    const sim::Machine simulated(machines::ofDisks(static_cast<size_t>(number)));
    const Cost cost = bestOf(5, [number] {
        Array<Disk> disks;
        ASSERT_EQ(findDisks(disks), FindResult::done);
        ASSERT_EQ(disks.count(), number);
    });
    report("find", cost);
    return cost.cpu / number;
}

// Of each disk, on two processors of 2026; with slack, because caches are shared with other processes.
constexpr double kMostFindingSeconds = 120e-6;

} // namespace scenario

// SPDX-License-Identifier: Apache-2.0
// What a stretch of a program costs without what the simulated machine, preloaded into it, takes of it.
#pragma once

#include <chrono>
#include <ctime>

namespace sim {
// Of the simulated machine; not there in a process without.
[[gnu::weak]] double ownCpuSecondsOfProcess();
} // namespace sim

namespace compare {

struct Taken {
    double cpuSeconds, wallSeconds;
};

class Stopwatch {
public:
    Stopwatch() : cpu_(cpuNow()), wall_(std::chrono::steady_clock::now()), simulated_(simulatedNow()) {}
    Taken taken() const
    {
        const double wall = std::chrono::duration<double>(std::chrono::steady_clock::now() - wall_).count();
        const double cpu = cpuNow() - cpu_;
        const double simulated = simulatedNow() - simulated_;
        return {cpu - simulated, wall - simulated};
    }

private:
    static double cpuNow()
    {
        timespec now{};
        ::clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now);
        return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9;
    }
    static double simulatedNow() { return sim::ownCpuSecondsOfProcess == nullptr ? 0 : sim::ownCpuSecondsOfProcess(); }

    double cpu_;
    std::chrono::steady_clock::time_point wall_;
    double simulated_;
};

} // namespace compare

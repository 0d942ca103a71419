// SPDX-License-Identifier: Apache-2.0
// Measures a stretch of a program, with and without the time that the preloaded simulated machine takes of it.
#pragma once

#include <chrono>
#include <cstdio>
#include <ctime>

namespace sim {
// Defined by the simulated machine; null in a process without it.
[[gnu::weak]] double ownCpuSecondsOfProcess();
} // namespace sim

namespace compare {

struct Taken {
    double cpuSeconds, wallSeconds;       // without the simulated machine
    double rawCpuSeconds, rawWallSeconds; // with it
};

// One line of a program's output, read by measuring programs.
inline void print(const Taken &taken)
{
    std::printf("%.9f %.9f %.9f %.9f\n", taken.cpuSeconds, taken.wallSeconds, taken.rawCpuSeconds,
                taken.rawWallSeconds);
}

class Stopwatch {
public:
    Stopwatch() : cpu_(cpuNow()), wall_(std::chrono::steady_clock::now()), simulated_(simulatedNow()) {}
    Taken taken() const
    {
        const double wall = std::chrono::duration<double>(std::chrono::steady_clock::now() - wall_).count();
        const double cpu = cpuNow() - cpu_;
        const double simulated = simulatedNow() - simulated_;
        return {cpu - simulated, wall - simulated, cpu, wall};
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

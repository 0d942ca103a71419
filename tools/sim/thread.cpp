// SPDX-License-Identifier: Apache-2.0
#include "sim/thread.h"

#include "sim/api.h"

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <ctime>

namespace sim {

thread_local constinit ThreadState thisThread{};

namespace {

constinit std::atomic<bool> measuring{false}; // reading the clock is a system call: only on demand
constinit std::atomic<int64_t> nanosecondsOfProcess{0};
constinit std::atomic<double> secondsToMeasure{0}; // what one measured stretch takes outside of itself

double cpuSeconds()
{
    timespec now{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9;
}

void addOwn(double seconds)
{
    thisThread.ownSeconds += seconds;
    nanosecondsOfProcess.fetch_add(static_cast<int64_t>(seconds * 1e9), std::memory_order_relaxed);
}

// Of the two readings of the clock around a stretch, about one is outside of it: the first half of the one and the
// second half of the other. Like all of the machine's time it must not count as its caller's. The least of several
// rounds, so that none of the caller's time is taken away.
double leastOutside()
{
    constexpr int kRounds = 8;
    constexpr int kStretches = 16;
    double least = 1;
    for (int round = 0; round < kRounds; ++round) {
        const double start = cpuSeconds();
        double inside = 0;
        for (int i = 0; i < kStretches; ++i) {
            const double begin = cpuSeconds();
            inside += cpuSeconds() - begin;
        }
        least = std::min(least, (cpuSeconds() - start - inside) / (kStretches + 1));
    }
    return std::max(least, 0.0);
}

} // namespace

OwnTime::OwnTime() : counted_(measuring.load(std::memory_order_relaxed))
{
    if (counted_ && thisThread.measured++ == 0) {
        thisThread.startedSeconds = cpuSeconds();
    }
}

OwnTime::~OwnTime()
{
    if (counted_ && --thisThread.measured == 0) {
        addOwn(cpuSeconds() - thisThread.startedSeconds + secondsToMeasure.load(std::memory_order_relaxed));
    }
}

void measureOwnCpu(bool on)
{
    if (on) {
        const double start = cpuSeconds();
        secondsToMeasure = leastOutside();
        addOwn(cpuSeconds() - start);
    }
    measuring = on;
}

double ownCpuSeconds()
{
    return thisThread.ownSeconds;
}

double ownCpuSecondsOfProcess()
{
    return static_cast<double>(nanosecondsOfProcess.load()) * 1e-9;
}

} // namespace sim

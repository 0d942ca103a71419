// SPDX-License-Identifier: Apache-2.0
#include "sim/thread.h"

#include "sim/api.h"

#include <atomic>
#include <cstdint>
#include <ctime>

namespace sim {

thread_local constinit ThreadState thisThread{};

namespace {

constinit std::atomic<bool> measuring{false}; // reading the clock is a system call: only on demand
constinit std::atomic<int64_t> nanosecondsOfProcess{0};

double cpuSeconds()
{
    timespec now{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9;
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
        const double seconds = cpuSeconds() - thisThread.startedSeconds;
        thisThread.ownSeconds += seconds;
        nanosecondsOfProcess.fetch_add(static_cast<int64_t>(seconds * 1e9), std::memory_order_relaxed);
    }
}

void measureOwnCpu(bool on)
{
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

#include "sim/thread.h"

#include "sim/api.h"

#include <atomic>
#include <ctime>

namespace sim {

thread_local constinit ThreadState thisThread{};

namespace {

constinit std::atomic<bool> measuring{false}; // reading the clock is a system call: only on demand

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
        thisThread.ownSeconds += cpuSeconds() - thisThread.startedSeconds;
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

} // namespace sim

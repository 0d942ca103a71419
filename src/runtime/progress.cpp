// SPDX-License-Identifier: Apache-2.0
#include "runtime/progress.h"

#include <atomic>
#include <ctime>

using namespace tavstrg;

namespace {

std::atomic<ProgressClock::rep> g_last{0};

} // namespace

ProgressClock::time_point ProgressClock::now()
{
    timespec time{};
    ::clock_gettime(CLOCK_MONOTONIC, &time);
    return time_point(std::chrono::seconds(time.tv_sec) + std::chrono::nanoseconds(time.tv_nsec));
}

void tavstrg::noteProgress()
{
    g_last = ProgressClock::now().time_since_epoch().count();
}

ProgressClock::time_point tavstrg::lastProgress()
{
    return ProgressClock::time_point(ProgressClock::duration(g_last));
}

// SPDX-License-Identifier: Apache-2.0
#include "runtime/progress.h"

#include <atomic>

using namespace tavstrg;

namespace {

std::atomic<ProgressClock::rep> g_last{0};

} // namespace

void tavstrg::noteProgress()
{
    g_last = ProgressClock::now().time_since_epoch().count();
}

ProgressClock::time_point tavstrg::lastProgress()
{
    return ProgressClock::time_point(ProgressClock::duration(g_last));
}

// SPDX-License-Identifier: Apache-2.0
// Pauses that a signal does not shorten: the host's signals may come at any rate.
#pragma once

#include "runtime/progress.h"

#include <cerrno>
#include <chrono>
#include <unistd.h>

namespace tavstrg {

// Sleeps for that many microseconds.
inline void pauseFor(useconds_t microseconds)
{
    const auto end = ProgressClock::now() + std::chrono::microseconds(microseconds);
    for (auto left = std::chrono::microseconds(microseconds); left.count() > 0;
         left = std::chrono::duration_cast<std::chrono::microseconds>(end - ProgressClock::now())) {
        if (::usleep(static_cast<useconds_t>(left.count())) == 0 || errno != EINTR) {
            return;
        }
    }
}

// Sleeps for that many seconds, with sleep(3). Cancellation points are its own.
inline void pauseForSeconds(unsigned seconds)
{
    const auto end = ProgressClock::now() + std::chrono::seconds(seconds);
    for (auto left = std::chrono::seconds(seconds); left.count() > 0;
         left = std::chrono::ceil<std::chrono::seconds>(end - ProgressClock::now())) {
        if (::sleep(static_cast<unsigned>(left.count())) == 0) {
            return;
        }
    }
}

} // namespace tavstrg

// SPDX-License-Identifier: Apache-2.0
// Pauses that a signal does not shorten: the host's signals may come at any rate.
#pragma once

#include <cerrno>
#include <chrono>
#include <unistd.h>

namespace tavstrg {

// Sleeps for that many microseconds.
inline void pauseFor(useconds_t microseconds)
{
    using Clock = std::chrono::steady_clock;
    const auto end = Clock::now() + std::chrono::microseconds(microseconds);
    for (auto left = std::chrono::microseconds(microseconds); left.count() > 0;
         left = std::chrono::duration_cast<std::chrono::microseconds>(end - Clock::now())) {
        if (::usleep(static_cast<useconds_t>(left.count())) == 0 || errno != EINTR) {
            return;
        }
    }
}

// Sleeps for that many seconds, with sleep(3). Cancellation points are its own.
inline void pauseForSeconds(unsigned seconds)
{
    using Clock = std::chrono::steady_clock;
    const auto end = Clock::now() + std::chrono::seconds(seconds);
    for (auto left = std::chrono::seconds(seconds); left.count() > 0;
         left = std::chrono::ceil<std::chrono::seconds>(end - Clock::now())) {
        if (::sleep(static_cast<unsigned>(left.count())) == 0) {
            return;
        }
    }
}

} // namespace tavstrg

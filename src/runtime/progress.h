// SPDX-License-Identifier: Apache-2.0
// Whether the work that others wait for gets further. Waiting requests give up only where nothing does.
#pragma once

#include <chrono>

namespace tavstrg {

// The kernel's monotonic clock, without the C++ library's part of it.
struct ProgressClock {
    using duration = std::chrono::nanoseconds;
    using rep = duration::rep;
    using period = duration::period;
    using time_point = std::chrono::time_point<ProgressClock>;
    static constexpr bool is_steady = true;
    static time_point now();
};

// Notes that a step of a collection is done, or that the store's lock was given back. Side effect free otherwise; may
// be called by any thread.
void noteProgress();
// When that was done last; the clock's epoch if never.
ProgressClock::time_point lastProgress();

} // namespace tavstrg

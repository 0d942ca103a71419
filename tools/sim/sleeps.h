// SPDX-License-Identifier: Apache-2.0
// How sleeps of the product are skipped and woken.
#pragma once

#include <cstdint>

namespace sim {

bool skipsSleeps();
void addSkippedSleep(int64_t nanoseconds);

// A sleeper (holdSleeps) that waits in poll: its descriptor becomes readable when it is woken.
class WokenByDescriptor {
public:
    WokenByDescriptor();
    ~WokenByDescriptor();
    WokenByDescriptor(const WokenByDescriptor &) = delete;
    WokenByDescriptor &operator=(const WokenByDescriptor &) = delete;
    int descriptor() const { return descriptor_; }

private:
    int descriptor_;
};

} // namespace sim

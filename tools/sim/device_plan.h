// SPDX-License-Identifier: Apache-2.0
// What a device's faults and delays do to one request.
#pragma once

#include "sim/device.h"

#include <chrono>
#include <mutex>

namespace sim {

struct Plan {
    std::chrono::nanoseconds wait{0};
    bool hangs = false; // before that, until the device is released
    Fault failure;      // none unless fails()
};

// Counts the request. Needs the lock.
Plan planFor(Device &device, const RequestKind &kind);

// Waits as planned, without the lock. Ends early when the device is removed. Like a real ioctl, it is not a
// cancellation point if the caller has disabled cancellation.
void waitOut(std::unique_lock<std::mutex> &held, Device &device, const Plan &plan);

} // namespace sim

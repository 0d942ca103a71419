// SPDX-License-Identifier: Apache-2.0
// One look at a machine's storage: the provider's answers, and beside them what its trace and the kernel add.
#pragma once

#include "tavstrg/inventory.h"
#include "tavstrg/readings.h"

#include "tavstrg/session.h"

#include <chrono>

namespace tool {

// Sets time and duration of the collection when it is destroyed.
class Stopwatch {
public:
    explicit Stopwatch(Collection &collection) : collection_(collection) {}
    ~Stopwatch();
    Stopwatch(const Stopwatch &) = delete;
    Stopwatch &operator=(const Stopwatch &) = delete;

private:
    Collection &collection_;
    std::chrono::steady_clock::time_point begin_ = std::chrono::steady_clock::now();
};

// Makes the provider collect, in the private copy of the session's surroundings. "readings" has followed the provider's
// trace since it was loaded. Throws Failure.
Inventory collectInventory(Session &session, const SmartReadings &readings);

// What the last pass of the running monitoring thread has found; its collection has no time. Throws Failure.
Inventory publishedInventory(Session &session, const SmartReadings &readings);

} // namespace tool

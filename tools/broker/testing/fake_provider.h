// SPDX-License-Identifier: Apache-2.0
// Counts and settings of the small provider of the broker's tests.
#pragma once

#include <atomic>
#include <thread>

struct FakeProvider {
    std::atomic<int> instanceFactories{0};
    std::atomic<int> methodFactories{0};
    std::atomic<int> instanceCleanups{0};
    std::atomic<int> methodCleanups{0};
    std::atomic<int> terminatingCleanups{0};
    std::atomic<bool> cleanupsMet{false}; // two threads were inside one at the same time
    std::atomic<int> inside{0};           // threads inside a request that waits for another
    std::atomic<bool> overlapped{false};
    std::atomic<std::thread::id> factoryThread{};
    std::atomic<std::thread::id> requestThread{};

    std::atomic<int> instanceCleanupAnswer{0};
    std::atomic<int> methodCleanupAnswer{0};
    std::atomic<int> factoryAnswer{0};
    std::atomic<bool> cleanupCallsBroker{false};
    std::atomic<bool> cleanupWaitsForAnother{false};
};

// Exported by the provider: sets where it counts.
using FakeProviderUse = void (*)(FakeProvider *);

// SPDX-License-Identifier: Apache-2.0
// A condition variable by the monotonic clock. That of the C++ library would be the only reason to load that library.
#pragma once

#include <cstdint>
#include <mutex>
#include <pthread.h>

namespace tavstrg {

class Condition {
public:
    Condition()
    {
        pthread_condattr_t monotonic;
        pthread_condattr_init(&monotonic);
        pthread_condattr_setclock(&monotonic, CLOCK_MONOTONIC);
        pthread_cond_init(&condition_, &monotonic);
        pthread_condattr_destroy(&monotonic);
    }
    ~Condition() { pthread_cond_destroy(&condition_); }
    Condition(const Condition &) = delete;
    Condition &operator=(const Condition &) = delete;

    void notifyAll() { pthread_cond_broadcast(&condition_); }
    // Waits, with the lock given back meanwhile, until it is notified or the clock shows end, nanoseconds. May also
    // return without a reason.
    void waitUntil(std::unique_lock<std::mutex> &held, int64_t end)
    {
        constexpr int64_t kSecond = 1'000'000'000; // nanoseconds
        const timespec time{end / kSecond, end % kSecond};
        pthread_cond_timedwait(&condition_, held.mutex()->native_handle(), &time);
    }

private:
    pthread_cond_t condition_;
};

} // namespace tavstrg

// SPDX-License-Identifier: Apache-2.0
// How requests outside service mode take turns at the store: by polling its lock, or with the option fair-requests in
// the order in which they arrive.
#pragma once

#include "runtime/condition.h"

#include <cstdint>
#include <mutex>
#include <pthread.h>

namespace tavstrg {

struct TurnRules {
    // Takes the store's lock, with traces in the caller's scope. Returns 0; or -1 after an error, or where the store is
    // stuck for about three seconds.
    int (*takeLock)(pthread_mutex_t *mutex);
    // For a request that arrives now, when that many collections have begun: the highest number of a collection whose
    // result it must not take.
    uint64_t (*lastForeign)(uint64_t begun);
    // For a request that waits for the first build: its waits, each of 100 ms, after one more.
    int (*waitsAfter)(int waits);
};

const TurnRules &turnRules();

// A line of waiting threads, served in the order in which they joined it.
class TurnQueue {
public:
    // Calls attempt, when the caller is the first in line, until it returns anything but EBUSY, and returns that; again
    // after each changed(). Returns ETIMEDOUT when neither progress was noted nor the caller joined for three seconds.
    template <class Attempt> int wait(Attempt attempt)
    {
        std::unique_lock held(guard_);
        Waiter me;
        join(me);
        int result = attemptIfFirst(me, attempt);
        while (result == kNotYet && sleepUntilChanged(held, me)) {
            result = attemptIfFirst(me, attempt);
        }
        leave(me);
        return result == kNotYet ? kStuck : result;
    }
    // What the waiting threads wait for may be there now.
    void changed();

private:
    struct Waiter {
        Waiter *next = nullptr;
        int64_t joined = 0; // ProgressClock
    };
    static const int kNotYet; // EBUSY
    static const int kStuck;  // ETIMEDOUT

    template <class Attempt> int attemptIfFirst(const Waiter &me, Attempt attempt)
    {
        return first_ == &me ? attempt() : kNotYet;
    }
    void join(Waiter &me);
    void leave(Waiter &me);
    // False when the time is over.
    bool sleepUntilChanged(std::unique_lock<std::mutex> &held, const Waiter &me);

    std::mutex guard_;
    Condition changed_;
    Waiter *first_ = nullptr;
};

} // namespace tavstrg

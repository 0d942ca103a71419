// SPDX-License-Identifier: Apache-2.0
// Hints for the sanitizers where they cannot see what happens. Does nothing in other builds.
#pragma once

#if defined(__SANITIZE_ADDRESS__)
#define SIM_ADDRESS_SANITIZER 1
#elif defined(__SANITIZE_THREAD__)
#define SIM_THREAD_SANITIZER 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define SIM_ADDRESS_SANITIZER 1
#elif __has_feature(thread_sanitizer)
#define SIM_THREAD_SANITIZER 1
#endif
#endif

#ifdef SIM_ADDRESS_SANITIZER
#include <sanitizer/asan_interface.h>
#endif
#ifdef SIM_THREAD_SANITIZER
#include <sanitizer/tsan_interface.h>
#endif

namespace sim {

// Around a call in which the thread may be cancelled. The address sanitizer clears its marks of stack frames that an
// exception unwinds, but not of those that a cancellation unwinds: it would report the destructors that run during
// unwinding. So this clears all marks before the first of these destructors.
class MayUnwind {
public:
    MayUnwind() = default;
    ~MayUnwind()
    {
#ifdef SIM_ADDRESS_SANITIZER
        if (!returned_) {
            __asan_handle_no_return();
        }
#endif
    }
    MayUnwind(const MayUnwind &) = delete;
    MayUnwind &operator=(const MayUnwind &) = delete;
    void returned()
    {
        returned_ = true;
    }

private:
    [[maybe_unused]] bool returned_ = false;
};

// A lock was taken or is about to be released within a call that sleeps, which the thread sanitizer does not see.
inline void lockTaken([[maybe_unused]] void *lock)
{
#ifdef SIM_THREAD_SANITIZER
    __tsan_acquire(lock);
#endif
}
inline void lockReleased([[maybe_unused]] void *lock)
{
#ifdef SIM_THREAD_SANITIZER
    __tsan_release(lock);
#endif
}

} // namespace sim

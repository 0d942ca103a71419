// SPDX-License-Identifier: Apache-2.0
// What the sanitizers have to be told where they see less than what happens; nothing in other builds.
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

// Around a call in which the thread may be cancelled. The address sanitizer sees the frames that an exception leaves,
// but not those that a cancel leaves: their marks on the stack would stay and be taken for errors of the destructors
// that run on the way out. So all marks are taken away before the first of these runs.
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

// A lock was taken, or is about to be given back, where the thread sanitizer may not look: it does not within the calls
// that sleep.
inline void lockTaken([[maybe_unused]] void *lock)
{
#ifdef SIM_THREAD_SANITIZER
    __tsan_acquire(lock);
#endif
}
inline void lockGoes([[maybe_unused]] void *lock)
{
#ifdef SIM_THREAD_SANITIZER
    __tsan_release(lock);
#endif
}

} // namespace sim

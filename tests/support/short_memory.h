// SPDX-License-Identifier: Apache-2.0
// The nth allocation from now fails, for as long as one lives.
#pragma once

#include "sim/sim.h"

#if defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer) || __has_feature(memory_sanitizer)
#define TAV_ALLOCATOR_IS_THE_SANITIZERS 1
#endif
#elif defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define TAV_ALLOCATOR_IS_THE_SANITIZERS 1
#endif

class ShortMemory {
public:
    explicit ShortMemory(unsigned nth)
    {
        sim::countCallsOf(""); // every caller: the test's own code must not allocate while one lives
        sim::failNth(sim::Call::allocate, nth);
    }
    ~ShortMemory() { sim::failNth(sim::Call::allocate, 0); }
    ShortMemory(const ShortMemory &) = delete;
    ShortMemory &operator=(const ShortMemory &) = delete;
    bool struck() const { return sim::failureStruck(); }

    // The sanitizers' allocator cannot be made to fail.
    static constexpr bool possible()
    {
#ifdef TAV_ALLOCATOR_IS_THE_SANITIZERS
        return false;
#else
        return true;
#endif
    }
};

#define SKIP_UNLESS_MEMORY_CAN_BE_SHORT()                                                                              \
    if (!ShortMemory::possible()) {                                                                                    \
        GTEST_SKIP() << "the allocator is the sanitizer's";                                                            \
    }                                                                                                                  \
    static_assert(true)

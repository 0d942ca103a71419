// SPDX-License-Identifier: Apache-2.0
// Makes every pthread_create with default attributes fail.
#pragma once

#include <cstddef>
#include <gtest/gtest.h>
#include <pthread.h>

// While one lives, new threads are to have a stack that no address space can hold.
class NoStackForThreads {
public:
    NoStackForThreads()
    {
        pthread_getattr_default_np(&usual_);
        pthread_attr_t hopeless;
        pthread_attr_init(&hopeless);
        EXPECT_EQ(pthread_attr_setstacksize(&hopeless, size_t{1} << 60), 0);
        EXPECT_EQ(pthread_setattr_default_np(&hopeless), 0);
        pthread_attr_destroy(&hopeless);
    }
    ~NoStackForThreads()
    {
        pthread_setattr_default_np(&usual_);
        pthread_attr_destroy(&usual_);
    }
    NoStackForThreads(const NoStackForThreads &) = delete;
    NoStackForThreads &operator=(const NoStackForThreads &) = delete;

private:
    pthread_attr_t usual_;
};

// SPDX-License-Identifier: Apache-2.0
// Child processes of scenarios: several providers on one machine, and providers that are killed.
#pragma once

#include "support/process.h"

#include <gtest/gtest.h>

#include <functional>
#include <new>
#include <sys/mman.h>

namespace scenario {

// A process that runs work. It ends with status 0, or 1 if an expectation of the work failed. Created while the caller
// has one thread.
class Child : public process::Process {
public:
    explicit Child(const std::function<void()> &work)
        : Process([&work] {
              work();
              return testing::Test::HasFailure() ? 1 : 0;
          })
    {
    }
};

// An object in memory that a process shares with its children.
template <class T> class Shared {
public:
    Shared() : object_(new (::mmap(nullptr, sizeof(T), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0)) T())
    {
    }
    ~Shared() { ::munmap(object_, sizeof(T)); }
    Shared(const Shared &) = delete;
    Shared &operator=(const Shared &) = delete;
    T *operator->() const { return object_; }
    T &operator*() const { return *object_; }

private:
    T *object_;
};

} // namespace scenario

// SPDX-License-Identifier: Apache-2.0
// Processes of their own for scenarios: several providers on one machine, and such as are killed.
#pragma once

#include <functional>
#include <new>
#include <string>
#include <sys/mman.h>
#include <sys/types.h>
#include <vector>

namespace scenario {

// A process that runs work and ends, without the tidying up of an ordinary end. To be made while the caller has but one
// thread.
class Child {
public:
    explicit Child(const std::function<void()> &work);
    ~Child(); // kills it if nobody has waited for it
    Child(const Child &) = delete;
    Child &operator=(const Child &) = delete;
    pid_t pid() const { return pid_; }
    void kill() const;
    // Waits for its end: 0, 1 when expectations of its work failed, 128 and the number of the signal that ended it.
    int wait();

private:
    pid_t pid_;
    bool ended_ = false;
};

// What a process and its children see of each other: T lies in memory that they share.
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

struct SegmentOf {
    int id;
    unsigned key;
    size_t bytes;
};
// The shared-memory segments that a process has created and nobody has removed.
std::vector<SegmentOf> segmentsOf(pid_t pid);
void removeSegmentsOf(pid_t pid);

} // namespace scenario

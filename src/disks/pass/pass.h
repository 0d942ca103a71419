// SPDX-License-Identifier: Apache-2.0
// One pass: asks all disks of a list, adapters side by side, one command at a time per adapter.
//
// A command in the kernel cannot be ended. A disk that has not answered by its deadline is set aside: the thread that
// asks it stays with it until the command returns, and later passes leave the disk alone so long. Another thread goes
// on with the adapter's other disks.
#pragma once

#include "disks/array.h"
#include "disks/disk.h"

#include <cstdint>
#include <pthread.h>

namespace tavstrg::disks {

struct PassLimits {
    uint32_t deadlineMs = 15000; // per disk; a command has six seconds of its own
    int32_t mostThreads = 64;
};

struct Worker;
struct Round;

class Pass {
public:
    Pass();
    // Waits for the threads that are still with their disks.
    ~Pass();
    Pass(const Pass &) = delete;
    Pass &operator=(const Pass &) = delete;

    // Asks the disks, whose names and places must be those of findDisks: sets readings, health and lastAsked. sysfs:
    // where it is mounted. Only one run at a time. False if memory is short: nothing was asked.
    bool run(Array<Disk> &disks, const PassLimits &limits = {}, const char *sysfs = "/sys");

    // Disks whose command has not returned.
    int32_t setAside() const;

private:
    static void *threadMain(void *argument);
    void work(Worker &worker);
    bool claim(Worker &worker);
    bool startWorker(Round &round);
    void startWorkers(Round &round);
    void await(Round &round);
    void setOverdueAside(Round &round);
    void leaveOut(Round &round);
    void joinEnded();
    bool isAside(const char *name) const;

    mutable pthread_mutex_t mutex_;
    pthread_cond_t changed_;
    Worker *workers_ = nullptr; // guarded by mutex_, as is what it leads to
};

} // namespace tavstrg::disks

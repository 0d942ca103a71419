// SPDX-License-Identifier: Apache-2.0
// One pass: asks all disks of a list, adapters side by side, one command at a time per adapter.
//
// A command in the kernel cannot be ended. A disk that has not answered by its deadline is set aside: the thread that
// asks it stays with it until the command returns, and later passes leave the disk alone so long. Another thread goes
// on with the adapter's other disks. Threads are those of runtime/side_by_side: one that is away needs no Pass, and
// keeps the library loaded that it returns into.
#pragma once

#include "disks/array.h"
#include "disks/disk.h"

#include <atomic>
#include <cstdint>

namespace tavstrg::disks {

struct PassLimits {
    uint32_t deadlineMs = 15000;             // per disk; a command has six seconds of its own
    int32_t mostThreads = 64;                // of those that are not set aside
    uint32_t wholeMs = 0;                    // of a pass; what was not asked by then is unknown. 0: no limit
    const std::atomic<bool> *stop = nullptr; // ends the pass within two seconds once it is true
};

class Pass {
public:
    // Asks the disks, whose names and places must be those of findDisks: sets readings, health and lastAsked. sysfs:
    // where it is mounted. Only one run of a process at a time. False if memory is short, or the pass was stopped: the
    // disks have no answers then.
    bool run(Array<Disk> &disks, const PassLimits &limits = {}, const char *sysfs = "/sys");

    // Disks of this process whose command has not returned.
    int32_t setAside() const;
};

} // namespace tavstrg::disks

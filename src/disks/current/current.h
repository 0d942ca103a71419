// SPDX-License-Identifier: Apache-2.0
// The disks of the machine as they are now, for a process whose threads ask again and again. All that ask at the same
// time, and within some seconds after that, share one pass.
//
// What is known of the disks from pass to pass is in a book of this process: a file of its own, because two that write
// one file would each take a change for told.
#pragma once

#include "disks/array.h"
#include "disks/disk.h"
#include "disks/pass/pass.h"

#include <cstdint>

namespace tavstrg::disks {

constexpr uint32_t kFreshMs = 10000; // after which the disks are asked again
// Brokers give a request up after some 40 s.
constexpr uint32_t kWholePassMs = 30000;
constexpr uint32_t kWaitMs = kWholePassMs + 5000;
constexpr uint32_t kStopPatienceMs = 3000;
constexpr char kCurrentBookFile[] = "/opt/qlm/tavkit_sa/data/tavstrgbook.dat";

struct CurrentLimits {
    uint32_t freshMs = kFreshMs;
    PassLimits pass = {.wholeMs = kWholePassMs}; // its flag "stop" is set by this file
    uint32_t waitMs = kWaitMs;                   // for the pass of another one, which may hang where no deadline is
    const char *book = kCurrentBookFile;
};

enum class CurrentState : uint8_t {
    done,
    notReadable, // /sys/block cannot be listed
    noMemory,
    stopped, // by forgetCurrentDisks
    busy     // the pass of another one took too long
};

// The disks of one pass. They stay as they are while this object lives.
class CurrentDisks {
public:
    // Takes those of the last pass if it is fresh, else those of one that is under way, else asks the disks.
    explicit CurrentDisks(const CurrentLimits &limits = {});
    ~CurrentDisks();
    CurrentDisks(const CurrentDisks &) = delete;
    CurrentDisks &operator=(const CurrentDisks &) = delete;

    CurrentState state() const { return state_; }
    // In the kernel's order, with firstSeen and health.since. Empty unless the state is done.
    const Array<Disk> &disks() const;

private:
    CurrentState state_;
    struct Snapshot *snapshot_; // null without one
    const Array<Disk> none_;
};

// Stops a pass that is under way, waits for its end, that many milliseconds at most, and frees what is kept between
// passes. False if a thread is still at work on a pass, in this code: it ends as soon as what it waits for returns.
bool forgetCurrentDisks(uint32_t patienceMs = kStopPatienceMs);

} // namespace tavstrg::disks

// SPDX-License-Identifier: Apache-2.0
// A pass over the disks in a process of its own, made for that pass. A command in the kernel cannot be ended: so it is
// not the service that waits for a disk that hangs, and the service can stop at any time.
#pragma once

#include "disks/array.h"
#include "disks/disk.h"
#include "disks/find/find.h"
#include "disks/pass/pass.h"

#include <sys/types.h>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace tool::monitor {

// The time of a pass over a number of disks. It ends by itself where many disks of one adapter hang, one after the
// other: those that were asked are reported, the rest has its turn in the next passes.
tavstrg::disks::PassLimits passLimits(int32_t disks);
// After which a pass that has not ended by itself is abandoned. More than any passLimits(). Milliseconds.
constexpr int64_t kLongestPassMs = 360000;
// Processes of earlier passes that hang in disks, at which no further pass is started.
constexpr size_t kMostLingering = 8;

class PassProcess {
public:
    using LimitsOf = tavstrg::disks::PassLimits (*)(int32_t disks);
    explicit PassProcess(LimitsOf limitsOf = passLimits, size_t mostLingering = kMostLingering)
        : limitsOf_(limitsOf), mostLingering_(mostLingering)
    {
    }
    ~PassProcess();
    PassProcess(const PassProcess &) = delete;
    PassProcess &operator=(const PassProcess &) = delete;

    // Starts a pass; only while none runs. Disks whose command has not returned since an earlier pass are left alone.
    // lock: a descriptor that the process closes at once. Returns 0 or an errno; EBUSY: too many processes linger.
    int start(int lock);
    bool isRunning() const { return pipe_ >= 0; }
    int descriptor() const { return pipe_; } // to poll; -1: none runs

    enum class Progress { running, done, failed };
    // Takes what the process has sent. At done disks() are those of the pass.
    Progress take();
    tavstrg::disks::Array<tavstrg::disks::Disk> &disks() { return disks_; }
    tavstrg::disks::FindResult result() const { return result_; }
    void abandon(); // kills the pass that runs

    void reap(); // processes that have ended

private:
    // A process that has not ended, and the disks whose command keeps it.
    struct Lingering {
        pid_t process;
        std::vector<std::string> names;
    };
    Progress finish(Progress progress);

    LimitsOf limitsOf_;
    size_t mostLingering_;
    int pipe_ = -1;
    pid_t process_ = -1;
    std::vector<Lingering> lingering_;
    std::vector<char> bytes_;
    size_t taken_ = 0;
    tavstrg::disks::Array<tavstrg::disks::Disk> disks_;
    tavstrg::disks::FindResult result_ = tavstrg::disks::FindResult::done;
};

} // namespace tool::monitor

// SPDX-License-Identifier: Apache-2.0
// All disks are asked before the walk, adapters side by side; the walk then gets the answers.
//
// The walk writes the trace lines of each disk when it comes to it, so that trace, numbers and results are those of a
// walk that asks the disks itself. A disk that does not answer in time is set aside: it is listed with what the kernel
// knows, its SmartPredict is -1, and it is not asked again until its command has returned.
#pragma once

#include "collect/devices/device_filter.h"
#include "collect/devices/disk_asker.h"
#include "runtime/side_by_side.h"

namespace tavstrg {

// Two time-outs of a command: one that times out is the disk's answer and not yet a reason to set the disk aside.
constexpr int32_t kDiskDeadlineMs = 12000;
constexpr int32_t kMostDiskThreads = 64; // beyond, adapters wait for one another

class AskAhead final : public DiskAsker {
public:
    AskAhead(const DiskNaming &naming, const DiskMethods &methods)
        : DiskAsker(kFunctions), naming_(naming), methods_(methods)
    {
    }
    // Asks the managed disks of a discovery list. A cancellation point. Returns false, with no disk asked, if memory is
    // short.
    bool ask(const SCSIDeviceInfo *list, const DeviceFilter &filter);

private:
    static const Functions kFunctions;

    struct DiskTask *taskOf(const SCSIDeviceInfo &device); // null for a disk that is not asked
    const DiskTask &current() const;
    bool isAnswered() const { return batch_.isDone(at_); }
    bool addTasks(const SCSIDeviceInfo *list, const DeviceFilter &filter);

    const DiskNaming naming_;
    const DiskMethods &methods_;
    SideBySide batch_;
    int32_t count_ = 0; // disks
    int32_t at_ = 0;    // the disk that the walk is at
};

} // namespace tavstrg

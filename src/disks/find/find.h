// SPDX-License-Identifier: Apache-2.0
// The disks of the machine as the kernel knows them. No device is asked: everything is read from sysfs, most of it
// readable for everybody.
#pragma once

#include "disks/array.h"
#include "disks/disk.h"

namespace tavstrg::disks {

constexpr int32_t kMostDisks = 65536;

// Why a list of disks may be incomplete.
enum class FindResult {
    done,
    notReadable, // /sys/block cannot be listed
    tooMany,     // there are more than kMostDisks
    noMemory
};

// Appends the disks of a machine to an empty array, sorted by kernel name, named, paths of one disk joined. Left out
// are what is no disk (loop, RAM, device mapper, optical drives, boot areas of MMC cards), and drives without a medium.
// sysfs: "/sys", or where a copy of it is. The array is empty unless the result is done or tooMany.
FindResult findDisks(Array<Disk> &disks, const char *sysfs = "/sys");

} // namespace tavstrg::disks

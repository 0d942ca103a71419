// SPDX-License-Identifier: Apache-2.0
// One entry of /sys/block as a disk.
#pragma once

#include "disks/disk.h"
#include "disks/find/attribute.h"
#include "disks/find/bays.h"

#include <string_view>

namespace tavstrg::disks {

struct Surroundings {
    const AttributeDirectory &sysfs;
    const AttributeDirectory &block; // "block" of it
    const Bays &bays;
};

// Whether an entry can be a disk by its name: virtual devices (loop0, ram0, dm-0, md0, zram0), optical and floppy
// drives and the boot areas of MMC cards are not looked at.
bool canBeDisk(std::string_view name);

// Fills a zero-filled disk; id, and readings and health but those of an eMMC, are left. False if the entry is no disk,
// is gone, or has no medium.
bool describeDisk(const Surroundings &at, const char *name, Disk &disk);

} // namespace tavstrg::disks

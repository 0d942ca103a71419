// SPDX-License-Identifier: Apache-2.0
// Disks that are left alone: asleep, or not used since they were last asked, so that they can fall asleep. Their last
// values stand for what they would answer.
#pragma once

#include "collect/devices/disk_asker.h"

#include <cstring>

namespace tavstrg {

// Whether a disk is left alone, in this order, each without waking it:
//   the kernel has suspended it (its node is not opened then);
//   it has been asked in this process, and programs have not read from it or written to it since;
//   it reports that it is in standby.
// disk.kept has the answer, and what is known about the disk if it is left alone: the values that were read last, else
// the stored ones, else what the kernel knows.
bool isLeftAlone(AskedDisk &disk);

// Remembers what a disk that is not left alone answered.
void rememberAsked(AskedDisk &disk, const HardDiskEntry &entry);
void rememberWear(const AskedDisk &disk, uint16_t figure);

// What stands for the answers of a disk that is left alone.
void serialOfKept(const AskedDisk &disk, char *serial);
void describeKept(const AskedDisk &disk, HardDiskEntry &entry);
int wearOfKept(const AskedDisk &disk, uint16_t *figure);

// Methods that ask as others do, but only disks that are not left alone. Nodes are opened for reading alone: udev reads
// from a disk whose node was open for writing, and it would never rest.
template <const DiskMethods &awake> struct UnlessLeftAlone {
    static int32_t serialNumber(AskedDisk &disk, char *serial)
    {
        if (isLeftAlone(disk)) {
            serialOfKept(disk, serial);
            return 0;
        }
        const int32_t result = awake.serialNumber(disk, serial);
        if (result == 0) {
            std::memcpy(disk.kept.values.serial, serial, sizeof disk.kept.values.serial);
        }
        return result;
    }
    static int describe(AskedDisk &disk, HardDiskEntry &entry)
    {
        if (disk.kept.leftAlone) {
            describeKept(disk, entry);
            return 0;
        }
        const int result = awake.describe(disk, entry);
        if (result == 0) {
            rememberAsked(disk, entry);
        }
        return result;
    }
    static int wear(AskedDisk &disk, uint8_t attribute, uint16_t *figure)
    {
        if (disk.kept.leftAlone) {
            return wearOfKept(disk, figure);
        }
        const int result = awake.wear(disk, attribute, figure);
        if (result == 0) {
            rememberWear(disk, *figure);
        }
        return result;
    }
    static constexpr DiskMethods kMethods = {NodeUse::kReadOnly, serialNumber, describe, wear};
};

} // namespace tavstrg

// SPDX-License-Identifier: Apache-2.0
// The hard disks of a collection with what the records do not have: the kernel's name and the worldwide name.
#pragma once

#include "records/records.h"
#include "runtime/holders.h"

#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

namespace tavstrg {

struct Collection;

// One hard disk, in the order of the hard-disk records. Texts are terminated; what is not known is empty.
struct CollectedDisk {
    uint16_t index; // of its SCSI or IDE device record
    int16_t interfaceType;
    uint16_t controllerIndex;
    uint16_t bus; // SCSI
    uint16_t targetId;
    uint16_t lun;
    int16_t drivePosition; // IDE: 1 unknown, 2 master, 3 slave
    int16_t smartStatus;   // as published
    bool smartAsked;       // false while the SMART mode is off: the status then says nothing
    char vendor[32];
    char model[32];
    char firmware[16];
    char serial[256];
    char wwid[256]; // "naa.5000c500a1b2c3d4"
    char name[64];  // "sda"
};

// While one lives, a collection of an administrator who asked for it fills it in. At most one at a time, and only while
// no other thread collects.
class DiskList {
public:
    DiskList();
    ~DiskList();
    DiskList(const DiskList &) = delete;
    DiskList &operator=(const DiskList &) = delete;

    // Whether a collection has filled it in; a machine without disks fills in an empty list.
    bool isFilled() const { return filled_; }
    std::span<const CollectedDisk> disks() const { return {disks_.get(), count_}; }
    // Takes the disks of a collection whose records are complete. Without memory, which is traced, the list counts as
    // not filled in.
    void fill(const Collection &all, const DatInfo *records);

private:
    HeapBlock<CollectedDisk> disks_{nullptr};
    size_t count_ = 0;
    bool filled_ = false;
};

// The list that lives, or null.
DiskList *wantedDiskList();

// "sda" of "/dev/sda"; a text without a slash is a name.
std::string_view kernelNameOf(std::string_view devPath);

} // namespace tavstrg

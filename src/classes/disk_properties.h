// SPDX-License-Identifier: Apache-2.0
// The description of TAV_StorageDisk, whose instances come from the disks engine and not from records of the store: the
// properties that are set, in their order. The schema, its test and the tool follow it.
#pragma once

#include "disks/disk.h"

#include <cmpidt.h>

#include <cstdint>
#include <span>

namespace tavstrg {

constexpr char kDiskClass[] = "TAV_StorageDisk";
constexpr char kDiskKey[] = "DiskID";

// A disk as it is published.
struct PublishedDisk {
    const disks::Disk &disk;
    uint16_t hardDiskIndex; // Index of its TAV_StorageHardDisk; 0: it has none
};

// The value of a property: a text (CMPI_chars) or a plain value.
struct DiskValue {
    const char *text;
    CMPIValue plain;
};

struct DiskProperty {
    const char *name;
    CMPIType type; // CMPI_chars, CMPI_boolean or a number
    size_t room;   // of a text: bytes of its field with the terminator
    bool key;
    // False where the disk does not report it: the property is NULL then. A text lives as long as the disk.
    bool (*read)(const PublishedDisk &disk, DiskValue &value);
};

std::span<const DiskProperty> diskProperties();

constexpr size_t kLongestDiskText = sizeof disks::Disk::id;

} // namespace tavstrg

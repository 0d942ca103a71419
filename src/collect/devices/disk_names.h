// SPDX-License-Identifier: Apache-2.0
// Names of SCSI disks: which /dev node is which address.
#pragma once

#include "collect/devices/kernel_disk.h"
#include "collect/scsi/scsi_discovery.h"
#include "runtime/options.h"

#include <array>
#include <cstddef>
#include <cstdint>

namespace tavstrg {

constexpr size_t kDiskNames = 128;   // "/dev/sda" to "/dev/sddx"
constexpr size_t kDiskNameSize = 16; // bytes, the terminator included

// One disk node that answered, with the kernel's address word: target id in bits 0-7, LUN in 8-15, channel in 16-23,
// host in 24-31.
struct SCSIDiskName {
    uint32_t address;
    char name[kDiskNameSize];
};

struct SCSIDiskNameTable {
    std::array<SCSIDiskName, kDiskNames> pairs;
    int32_t count;
};

// The i-th candidate name (0-based, below kDiskNames).
std::array<char, kDiskNameSize> diskNameCandidate(size_t i);
// The kernel's address word of a device.
uint32_t scsiAddressWord(const SCSIDeviceInfo &device);

// How one collection finds the node of a disk.
struct DiskNaming {
    // Path of the node into path (kDiskPathSize bytes), empty if no node is known. 0, or -1.
    int32_t (*find)(const SCSIDiskNameTable *table, const SCSIDeviceInfo &device, char *path);
    const SCSIDiskNameTable *table;
};

// From a table that GetSCSIDeviceName_IDArray has filled.
DiskNaming namingByTable(const SCSIDiskNameTable *table);

// As the options ask for: by the table, which is then filled, or from the directory of the disk itself in sysfs.
// Without find if the table cannot be filled.
DiskNaming namingOf(const Options &options, const SCSIDeviceInfo *list, SCSIDiskNameTable &table);

} // namespace tavstrg

// Number of "Direct-Access" devices on a list.
int32_t GetSCSIDiskDeviceNumber(const tavstrg::SCSIDeviceInfo *list);
// Asks the candidate nodes for their addresses until as many answered as there are "Direct-Access" devices on the list.
// 1, also with an empty table; 0 when there is no list. Optical memories have names of this form and use them up too.
int32_t GetSCSIDeviceName_IDArray(const tavstrg::SCSIDeviceInfo *list, tavstrg::SCSIDiskNameTable *table);
// Name of a device's node into name (kDiskNameSize bytes): empty when no node has its address. 0, or -1 for a null
// argument.
int32_t TAVStorageGetSCSIDeviceName(const tavstrg::SCSIDiskNameTable *table, const tavstrg::SCSIDeviceInfo *device,
                                    char *name);

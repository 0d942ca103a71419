// SPDX-License-Identifier: Apache-2.0
// What the kernel shows of a SCSI disk in sysfs. Reading it sends no command to the disk and opens no device node.
#pragma once

#include "collect/devices/serial_number.h"
#include "collect/scsi/scsi_parse.h"
#include "devcmd/hard_disk.h"

#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

namespace tavstrg {

constexpr size_t kDiskPathSize = sizeof(HardDiskEntry::DevPath); // bytes, the terminator included

// The beginning of a file of the device at an address, such as "wwid" or "power/runtime_status", as much as the buffer
// holds. Empty if there is no such file.
std::string_view readDeviceFile(const ScsiAddress &address, const char *file, std::span<char> buffer);
// The same for a file of the block device of the disk's node, such as "stat". Empty also without a path.
std::string_view readBlockFile(const ScsiAddress &address, const char *path, const char *file, std::span<char> buffer);

// Path of the node of a block device, from the name of its directory in sysfs, where "!" stands for "/"
// (linux/include/linux/device.h, dev_set_name). False, with path empty, for a name that is none or is too long.
bool nodePathOf(std::string_view name, char (&path)[kDiskPathSize]);

// Path of the node of the disk at an address: its directory "block" has one entry, named like the node. Empty where
// there is none, as for a disk to which no driver is bound.
void readNodePath(const ScsiAddress &address, char (&path)[kDiskPathSize]);

// Serial number from the pages that the kernel read when it found the disk: "vpd_pg80", else "vpd_pg89", else the whole
// text of "wwid". Empty if the kernel shows none of them. Traces where it is from.
void readKeptSerialNumber(const ScsiAddress &address, char (&serial)[kSerialNumberSize]);

// Size of a disk. Zeros where the kernel shows none.
struct KernelSize {
    uint64_t sectors;   // of 512 bytes
    int32_t sectorSize; // logical, bytes
};
// path: of the node of the disk at that address.
KernelSize readKernelSize(const ScsiAddress &address, const char *path);

} // namespace tavstrg

// SPDX-License-Identifier: Apache-2.0
// What the kernel knows of a disk's rest: whether it has suspended the disk, and what programs have read and written.
// Reading it sends no command to the disk and opens no device node.
#pragma once

#include "collect/scsi/scsi_parse.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>

namespace tavstrg {

// Requests that a disk has completed since the kernel found it. Commands through SG_IO and the other ioctls of this
// program are not counted (linux/block/blk.h, blk_do_io_stat).
struct IoCounts {
    uint64_t reads = 0;
    uint64_t writes = 0;
    uint64_t discards = 0; // 0 before Linux 4.18
    uint64_t flushes = 0;  // 0 before Linux 5.5

    bool operator==(const IoCounts &) const = default;
};

// The counts in the file "stat" of a block device (linux/Documentation/block/stat.rst); nothing if the text is no such
// file.
std::optional<IoCounts> parseIoCounts(std::string_view text);

// Whether a value of "power/runtime_status" means that the kernel has put the disk to rest or is about to. Opening its
// node would wake it (linux/drivers/scsi/sd.c, sd_open).
bool isSuspendedStatus(std::string_view text);

// path: of the node of the disk at that address.
std::optional<IoCounts> readIoCounts(const ScsiAddress &address, const char *path);
bool isSuspended(const ScsiAddress &address);

constexpr size_t kIdentitySize = 128; // bytes of an identity, the terminator included

// By what the kernel tells a disk from others, without asking it: "wwid", else the serial number of "vpd_pg80"; cut to
// its field. Empty if the kernel shows neither.
void readKernelIdentity(const ScsiAddress &address, char (&identity)[kIdentitySize]);

} // namespace tavstrg

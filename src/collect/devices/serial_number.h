// SPDX-License-Identifier: Apache-2.0
// Serial numbers of SCSI disks.
#pragma once

#include <cstddef>
#include <cstdint>

namespace tavstrg {

constexpr size_t kSerialNumberSize = 256; // bytes of the field, the terminator included

// The serial number with which a disk answers HDIO_GET_IDENTITY, trimmed and without what follows its field: empty if
// it answers with none, as a disk that is no ATA disk. 0, or the errno with which the disk cannot be asked at all: its
// node does not open, or the disk is gone or fails.
int readAnsweredSerialNumber(const char *path, char (&serial)[kSerialNumberSize]);

} // namespace tavstrg

// Serial number of a disk into serial (kSerialNumberSize bytes), trimmed; it may run on into the text after its field.
// 0, or -1 when the node cannot be opened or does not answer as an ATA disk.
int32_t TAVStorageGetSCSIDeviceSerialNumber(const char *name, char *serial);

// SPDX-License-Identifier: Apache-2.0
// Serial numbers of SCSI disks.
#pragma once

#include <cstddef>
#include <cstdint>

namespace tavstrg {

constexpr size_t kSerialNumberSize = 256; // bytes of the field, the terminator included

} // namespace tavstrg

// Serial number of a disk into serial (kSerialNumberSize bytes), trimmed; it may run on into the text after its field.
// 0, or -1 when the node cannot be opened or does not answer as an ATA disk.
int32_t TAVStorageGetSCSIDeviceSerialNumber(const char *name, char *serial);

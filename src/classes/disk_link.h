// SPDX-License-Identifier: Apache-2.0
// Which record of TAV_StorageHardDisk shows the same disk. Pure.
#pragma once

#include "disks/disk.h"
#include "records/records.h"

#include <span>

namespace tavstrg {

// The records of the three classes at one moment.
struct HardDiskRecords {
    std::span<const StrgHddRec> disks;
    std::span<const StrgScsiRec> scsi;
    std::span<const StrgIdeRec> ide;
};

// The Index of the one hard disk that has the channel, target, LUN and serial number of a disk, or its model where
// either has no serial number; of an IDE disk the serial number alone. 0 if there is none or more than one: the records
// do not have the number of the host.
uint16_t hardDiskIndexOf(const disks::Disk &disk, const HardDiskRecords &records);

} // namespace tavstrg

// SPDX-License-Identifier: Apache-2.0
// Remaining endurance of solid-state drives.
#pragma once

#include "collect/collection/device_tables.h"
#include "collect/devices/disk_asker.h"

// Appends a life-span entry for a SCSI disk whose model is in the endurance table: at level -1 when its figure cannot
// be read. When memory is short all life-span entries are given up.
void GetLifeSpanInfo(const char *devName, const tavstrg::SCSIDeviceEntry *scsiEntry);

namespace tavstrg {

// GetLifeSpanInfo for the disk that the asker is at.
void addLifeSpan(const char *devName, const SCSIDeviceEntry *scsiEntry, DiskAsker &asker);

} // namespace tavstrg

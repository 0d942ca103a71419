// SPDX-License-Identifier: Apache-2.0
// Remaining endurance of solid-state drives.
#pragma once

#include "collect/collection/device_tables.h"

// Appends a life-span entry for a SCSI disk whose model is in the endurance table: at level -1 when its figure cannot
// be read. When memory is short all life-span entries are given up.
void GetLifeSpanInfo(const char *devName, const tavstrg::SCSIDeviceEntry *scsiEntry);

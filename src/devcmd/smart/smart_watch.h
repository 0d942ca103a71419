// SPDX-License-Identifier: Apache-2.0
// The one entry into SMART handling of a hard disk.
#pragma once

#include "devcmd/hard_disk.h"

#include <atomic>
#include <cstdint>

extern std::atomic<int32_t> g_SmartMode; // SMART mode of the collection that runs; only 1 switches SMART handling on

// Called once for every SCSI hard disk of a collection, after fetch_sata_type, with DevKind, DevPath and fresh SMART
// fields (SmartPredict 0, SmartSupport 1, SmartEnableState 0), in which the outcome is. Switches SMART on, reads the
// prediction, and switches SMART off again where it was found off. With a SMART mode other than 1 no command is sent
// and the entry stays as it is.
void TAVStorageSmartWatch(tavstrg::HardDiskEntry *hdt);

// Reads into SmartEnableState whether SMART is switched on: 0 whatever came of it, or -1 for a null entry.
int fetch_enable_disable(tavstrg::HardDiskEntry *hdt);

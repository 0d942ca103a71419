// The one entry into SMART handling of a hard disk.
#pragma once

#include "devcmd/tavStrgGetInfoDisk.h"

#include <cstdint>

extern int32_t g_SmartMode; // SMART mode of the collection that runs; only 1 switches SMART handling on

// Called once for every SCSI hard disk of a collection, after fetch_sata_type. Sends no command and leaves the entry as
// it is: that is what a SMART mode other than 1 asks for. The handling that mode 1 asks for is not built in yet, so
// that support stays unknown and the prediction good whatever the mode.
void TAVStorageSmartWatch(HardDiskEntry *hdt);

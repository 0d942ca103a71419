// Remaining endurance of solid-state drives.
#pragma once

#include "collect/tavStrgGetInfoDeviceTables.h"

// Appends a life-span entry for a SCSI disk whose model is in the endurance table.
void GetLifeSpanInfo(const char *devName, const SCSIDeviceEntry *scsiEntry);

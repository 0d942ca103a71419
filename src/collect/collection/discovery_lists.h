// SPDX-License-Identifier: Apache-2.0
// The three discovery lists of one collection. They live from its start to its end.
#pragma once

#include "collect/ide/ide_discovery.h"
#include "collect/scsi/scsi_discovery.h"

#include <cstdint>

namespace tavstrg {

extern SCSIDeviceInfo *g_SCSIDeviceInfo; // null when the kernel shows none
extern int32_t g_SCSIDeviceTotalNumber;
extern SCSIControllerTypeDetail *g_SCSIControllerTypeDetail;

} // namespace tavstrg

extern int32_t g_SCSIControllerTypeTotalNumber; // distinct drivers
extern int32_t g_SCSIControllerTotalNumber;     // managed host adapters
extern tavstrg::IDEGeneralInfo g_IDEGeneralInfo;

// Builds the lists anew: 0, or -1 with all of them empty. What is not there (no sysfs directory, no "storage.inf", no
// /proc/ide) is an empty list.
int GetSCSIAndIDEInfoListFromProc();
// Frees the lists; they may be empty already.
void FreeSCSIAndIDEInfoListFromProc();

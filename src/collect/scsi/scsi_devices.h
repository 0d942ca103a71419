// SPDX-License-Identifier: Apache-2.0
// What both readers of the SCSI device list share.
#pragma once

#include "collect/base/node_list.h"
#include "collect/scsi/scsi_discovery.h"

namespace tavstrg {

// Checks the arguments of a list builder and sets its results to nothing: false, with *status -3 where there is one.
bool beginDeviceList(SCSIDeviceInfo **list, int32_t *count, int32_t *status);
// Appends a device with the next sequence number and traces it: false if memory is short.
bool appendDevice(NodeList<SCSIDeviceInfo> &devices, const SCSIDeviceInfo &device);
// Hands the list over to the caller: 0.
int finishDeviceList(NodeList<SCSIDeviceInfo> &devices, SCSIDeviceInfo **list, int32_t *count);

} // namespace tavstrg

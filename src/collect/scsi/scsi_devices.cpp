// SPDX-License-Identifier: Apache-2.0
#include "collect/scsi/scsi_devices.h"

using namespace tavstrg;

bool tavstrg::beginDeviceList(SCSIDeviceInfo **list, int32_t *count, int32_t *status)
{
    if (status != nullptr) {
        *status = kSourceNull;
    }
    if (list == nullptr) {
        return TRACED(false, kFailure, "_OUT_ param(list) Failure!!");
    }
    *list = nullptr;
    if (count == nullptr) {
        return TRACED(false, kFailure, "_OUT_ param(count) Failure!!");
    }
    *count = 0;
    if (status == nullptr) {
        return TRACED(false, kFailure, "_OUT_ param(status) Failure!!");
    }
    *status = 0;
    return true;
}

bool tavstrg::appendDevice(NodeList<SCSIDeviceInfo> &devices, const SCSIDeviceInfo &device)
{
    const int32_t sequence = devices.count();
    SCSIDeviceInfo *const node = devices.append();
    if (node == nullptr) {
        return TRACED(false, kFailure, "SCSIDEVICEINFO alloc failed!!");
    }
    *node = device;
    node->sequence = sequence;
    node->next = nullptr;
    TRACE(kDetail, "SCSIDeviceInfo(%d) Host=[%d] Channel=[%d] ID=[%d] LUN=[%d]", node->sequence, node->host,
          node->channel, node->id, node->lun);
    TRACE(kDetail, "                   Vender=[%s] Model=[%s]", node->vendor, node->model);
    TRACE(kDetail, "                   ScsiRev=[%s] Type=[%s]", node->scsiRev, node->type);
    return true;
}

int tavstrg::finishDeviceList(NodeList<SCSIDeviceInfo> &devices, SCSIDeviceInfo **list, int32_t *count)
{
    *count = devices.count();
    *list = devices.handOver();
    return TRACED(0, kDetail, "_OUT_ (0) totalNumber=[%d]", *count);
}

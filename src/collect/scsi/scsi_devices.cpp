#include "collect/scsi/scsi_devices.h"

bool beginDeviceList(const char *function, SCSIDeviceInfo **list, int32_t *count, int32_t *status)
{
    if (status != nullptr) {
        *status = kSourceNull;
    }
    if (list == nullptr) {
        return TRACED_AS(function, false, kFailure, "_OUT_ param(list) Failure!!");
    }
    *list = nullptr;
    if (count == nullptr) {
        return TRACED_AS(function, false, kFailure, "_OUT_ param(count) Failure!!");
    }
    *count = 0;
    if (status == nullptr) {
        return TRACED_AS(function, false, kFailure, "_OUT_ param(status) Failure!!");
    }
    *status = 0;
    return true;
}

bool appendDevice(const char *function, NodeList<SCSIDeviceInfo> &devices, const SCSIDeviceInfo &device)
{
    const int32_t sequence = devices.count();
    SCSIDeviceInfo *const node = devices.append();
    if (node == nullptr) {
        return TRACED_AS(function, false, kFailure, "SCSIDEVICEINFO alloc failed!!");
    }
    *node = device;
    node->sequence = sequence;
    node->next = nullptr;
    TRACE_AS(function, kDetail, "SCSIDeviceInfo(%d) Host=[%d] Channel=[%d] ID=[%d] LUN=[%d]", node->sequence,
             node->host, node->channel, node->id, node->lun);
    TRACE_AS(function, kDetail, "                   Vender=[%s] Model=[%s]", node->vendor, node->model);
    TRACE_AS(function, kDetail, "                   ScsiRev=[%s] Type=[%s]", node->scsiRev, node->type);
    return true;
}

int finishDeviceList(const char *function, NodeList<SCSIDeviceInfo> &devices, SCSIDeviceInfo **list, int32_t *count)
{
    *count = devices.count();
    *list = devices.handOver();
    return TRACED_AS(function, 0, kDetail, "_OUT_ (0) totalNumber=[%d]", *count);
}

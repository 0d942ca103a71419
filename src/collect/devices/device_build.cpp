// SPDX-License-Identifier: Apache-2.0
// How many entries each device table needs: upper bounds, found before any device is opened.
#include "collect/devices/device_build.h"

#include "collect/collection/collection.h"
#include "collect/devices/ide_table.h"
#include "collect/devices/scsi_table.h"
#include "runtime/field_text.h"

using namespace tavstrg;

namespace {

void countDevice(const DeviceKind &kind, int32_t &interfaceTotal)
{
    ++interfaceTotal;
    ++countersOf(collection(), kind.deviceClass).total;
}

} // namespace

int InitDevice()
{
    const TraceScope scope;
    TRACE(kDetail, "_IN_");
    resetDeviceCounters(collection());
    if (GetDeviceTotalNumber() < 0) {
        return TRACED(-1, kFailure, "_OUT_ ret=[%d]", -1);
    }
    if (MallocDeviceTable() < 0 || MakeDeviceTable() < 0) {
        FreeDeviceTable();
        return TRACED(-1, kFailure, "_OUT_ ret=[%d]", -1);
    }
    takeWrittenNumbers(collection());
    return TRACED(0, kDetail, "_OUT_ ret=[%d]", 0);
}

int MakeDeviceTable()
{
    const TraceScope scope;
    TRACE(kDetail, "_IN_");
    if ((collection().TotalSCSIDevice != 0 && MakeSCSIDeviceTable() < 0) ||
        (collection().TotalIDEDevice != 0 && MakeIDEDeviceTable() < 0)) {
        return TRACED(-1, kFailure, "_OUT_ ret=[%d]", -1);
    }
    return TRACED(0, kDetail, "_OUT_ ret=[%d]", 0);
}

int GetDeviceTotalNumber()
{
    const TraceScope scope;
    TRACE(kDetail, "_IN_");
    if (GetIDEDeviceTotalNumber() < 0 || GetSCSIDeviceTotalNumber() < 0) {
        return TRACED(-1, kFailure, "_OUT_ ret=[%d]", -1);
    }
    takeReservedNumbers(collection());
    return TRACED(0, kDetail, "_OUT_ ret=[%d]", 0);
}

int GetIDEDeviceTotalNumber()
{
    const TraceScope scope;
    TRACE(kDetail, "_IN_");
    for (const IDEDeviceInfo *device = collection().g_IDEGeneralInfo.devices; device != nullptr;
         device = device->next) {
        countDevice(ideKindOf(fieldText(device->media)), collection().TotalIDEDevice);
    }
    return TRACED(0, kDetail, "_OUT_ TotalIDEDevice=[%d]", collection().TotalIDEDevice);
}

void tavstrg::countSCSIDevices(const SCSIDeviceInfo *list, const DeviceFilter &filter)
{
    for (const SCSIDeviceInfo *device = list; device != nullptr; device = device->next) {
        switch (judgeHost(filter, device->host, filter.driverOfHost(device->host))) {
        case HostVerdict::usb:
            TRACE(kDetail, "The Device maybe USB Device: Host = %d,Vendor = %s", device->host, device->vendor);
            continue;
        case HostVerdict::noDriver:
            TRACE(kDetail, "######## Do not management ########");
            TRACE(kDetail, "host=%d,vender=%s,model=%s,scsirev=%s,type=%s ansirevision=%s,channel=%d,Id=%d,lun=%d",
                  device->host, device->vendor, device->model, device->scsiRev, device->type, device->ansiRev,
                  device->channel, device->id, device->lun);
            continue;
        case HostVerdict::managed:
            break;
        }
        const DeviceKind &kind = scsiKindOf(fieldText(device->type));
        // Deliberate: the unmanaged-device list is asked for every device but removes disks only.
        if (isListedUnmanaged(filter, *device) && kind.deviceClass == kHardDisk) {
            continue;
        }
        countDevice(kind, collection().TotalSCSIDevice);
    }
}

int GetSCSIDeviceTotalNumber()
{
    const TraceScope scope;
    TRACE(kDetail, "_IN_");
    DeviceFilter filter;
    if (filter.loadUSB() < 0) {
        return TRACED(-1, kFailure, "_OUT_ TAVStorageGetUSBCtrl() failed");
    }
    if (collection().g_SCSIDeviceInfo == nullptr) {
        return TRACED(0, kDetail, "_OUT_ CurrentInfo is NULL,No scsi disk exist");
    }
    if (filter.loadUnmanaged() < 0) {
        return TRACED(-1, kFailure, "_OUT_ CreateNoSCSIInfoTable() failed");
    }
    const int controllers = GetSCSIControllerNumber();
    if (controllers < 0) {
        return TRACED(-1, kFailure, "_OUT_ GetSCSIControllerNumber() failed");
    }
    if (filter.loadHosts() < 0) {
        return TRACED(-1, kFailure, "_OUT_ read_proc_scsi() failed");
    }
    TRACE(kDetail, "######## SCSICtrlNum = %d", controllers);
    countSCSIDevices(collection().g_SCSIDeviceInfo, filter);
    filter.release();
    return TRACED(0, kDetail, "_OUT_ TotalSCSIDevice=[%d]", collection().TotalSCSIDevice);
}

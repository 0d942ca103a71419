// SPDX-License-Identifier: Apache-2.0
#include "collect/devices/managed.h"

#include "collect/collection/device_kinds.h"
#include "runtime/field_text.h"

using namespace tavstrg;

int SCSISurroundings::loadUSB()
{
    return TAVStorageGetUSBCtrl(&usb.entries, &usb.count) < 0 ? -1 : 0;
}

int SCSISurroundings::loadHosts()
{
    return read_proc_scsi(&hosts.entries, &hosts.count) < 0 ? -1 : 0;
}

int SCSISurroundings::loadUnmanaged()
{
    int32_t status = 0;
    checkUnmanaged = CreateNoSCSIInfoTable(&pleafNoSCSI_Tbl, nullptr, &status) != 0;
    return checkUnmanaged || status == kSourceAbsent ? 0 : -1;
}

void SCSISurroundings::release()
{
    checkUnmanaged = false;
    if (pleafNoSCSI_Tbl != nullptr) {
        DestroyNoManageSCSIInfoTable(&pleafNoSCSI_Tbl);
    }
    usb.release();
    hosts.release();
}

const char *tavstrg::driverOfHost(const SCSISurroundings &around, int32_t host)
{
    for (int32_t i = 0; i < around.hosts.count; ++i) {
        if (around.hosts.entries[i].host == host) {
            return around.hosts.entries[i].driver;
        }
    }
    return nullptr;
}

int TAVStorageUSBCheck(const SCSISurroundings &around, int32_t host)
{
    const TraceScope scope;
    TRACE(kDetail, "_IN_ host=[%d]", host);
    for (int32_t i = 0; i < around.usb.count; ++i) {
        if (around.usb.entries[i].host == host) {
            return TRACED(1, kDetail, "_OUT_ ret=[%d]", 1);
        }
    }
    return TRACED(0, kDetail, "_OUT_ ret=[%d]", 0);
}

bool tavstrg::isListedUnmanaged(const SCSISurroundings &around, const SCSIDeviceInfo &device)
{
    return around.checkUnmanaged && TAVStorageNoManage(pleafNoSCSI_Tbl, device.vendor, device.model) == 1;
}

HostVerdict tavstrg::judgeHost(const SCSISurroundings &around, const SCSIDeviceInfo &device)
{
    if (TAVStorageUSBCheck(around, device.host) == 1) {
        return HostVerdict::usb;
    }
    return driverOfHost(around, device.host) == nullptr ? HostVerdict::noDriver : HostVerdict::managed;
}

bool tavstrg::isManagedDevice(const SCSISurroundings &around, const SCSIDeviceInfo &device)
{
    if (device.type[0] == '\0' || judgeHost(around, device) != HostVerdict::managed) {
        return false;
    }
    const bool disk = scsiKindOf(fieldText(device.type)).deviceClass == kHardDisk;
    return !(disk && isListedUnmanaged(around, device));
}

// SPDX-License-Identifier: Apache-2.0
#include "collect/devices/device_filter.h"

#include "collect/collection/device_kinds.h"
#include "collect/inf/inf_section.h"
#include "runtime/field_text.h"

using namespace tavstrg;

namespace {

template <class Entry> bool indexHosts(SortedIndex<int32_t> &index, const ListHolder<Entry> &list)
{
    if (!index.reserve(list.count)) {
        return false;
    }
    for (int32_t i = 0; i < list.count; ++i) {
        index.add(list.entries[i].host);
    }
    index.sort(hostIsLess);
    return true;
}

} // namespace

int DeviceFilter::loadUSB()
{
    return TAVStorageGetUSBCtrl(&usb.entries, &usb.count) < 0 || !indexHosts(usbHosts_, usb) ? -1 : 0;
}

int DeviceFilter::loadHosts()
{
    return read_proc_scsi(&hosts.entries, &hosts.count) < 0 || !indexHosts(managedHosts_, hosts) ? -1 : 0;
}

int DeviceFilter::loadUnmanaged()
{
    int32_t status = 0;
    checkUnmanaged = CreateNoSCSIInfoTable(&pleafNoSCSI_Tbl, nullptr, &status) != 0;
    return checkUnmanaged || status == kInfUnusable ? 0 : -1;
}

bool DeviceFilter::index()
{
    return indexHosts(usbHosts_, usb) && indexHosts(managedHosts_, hosts);
}

void DeviceFilter::release()
{
    checkUnmanaged = false;
    if (pleafNoSCSI_Tbl != nullptr) {
        DestroyNoManageSCSIInfoTable(&pleafNoSCSI_Tbl);
    }
    usb.release();
    hosts.release();
    usbHosts_.clear();
    managedHosts_.clear();
}

const char *DeviceFilter::driverOfHost(int32_t host) const
{
    const int32_t position = managedHosts_.find(host, hostIsLess);
    return position < 0 ? nullptr : hosts.entries[position].driver;
}

int TAVStorageUSBCheck(const DeviceFilter &filter, int32_t host)
{
    const TraceScope scope;
    TRACE(kDetail, "_IN_ host=[%d]", host);
    const int usb = filter.isUSB(host) ? 1 : 0;
    return TRACED(usb, kDetail, "_OUT_ ret=[%d]", usb);
}

bool tavstrg::isListedUnmanaged(const DeviceFilter &filter, const SCSIDeviceInfo &device)
{
    return filter.checkUnmanaged && TAVStorageNoManage(filter.pleafNoSCSI_Tbl, device.vendor, device.model) == 1;
}

HostVerdict tavstrg::judgeHost(const DeviceFilter &filter, int32_t host, const char *driver)
{
    if (TAVStorageUSBCheck(filter, host) == 1) {
        return HostVerdict::usb;
    }
    return driver == nullptr ? HostVerdict::noDriver : HostVerdict::managed;
}

bool tavstrg::isManagedDevice(const DeviceFilter &filter, const SCSIDeviceInfo &device)
{
    if (device.type[0] == '\0' ||
        judgeHost(filter, device.host, filter.driverOfHost(device.host)) != HostVerdict::managed) {
        return false;
    }
    const bool disk = scsiKindOf(fieldText(device.type)).deviceClass == kHardDisk;
    return !(disk && isListedUnmanaged(filter, device));
}

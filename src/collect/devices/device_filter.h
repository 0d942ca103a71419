// SPDX-License-Identifier: Apache-2.0
// What decides, besides a SCSI device itself, whether the device is managed.
#pragma once

#include "collect/base/flat_table.h"
#include "collect/base/sorted_index.h"
#include "collect/inf/noscsi_inf.h"
#include "collect/scsi/scsi_discovery.h"

#include <cstdint>

namespace tavstrg {

// Order of host numbers.
constexpr bool hostIsLess(int32_t left, int32_t right)
{
    return left < right;
}

// The adapter lists and the unmanaged-device list of one walk over the SCSI devices.
class DeviceFilter {
public:
    DeviceFilter() = default;
    ~DeviceFilter() { release(); }
    DeviceFilter(const DeviceFilter &) = delete;
    DeviceFilter &operator=(const DeviceFilter &) = delete;

    // Each returns 0, or -1.
    int loadUSB();
    int loadHosts();
    int loadUnmanaged(); // an absent list switches the check off
    // Prepares the lookups below for the current adapter lists. Returns false if memory is short.
    bool index();
    // Frees the unmanaged-device list, the USB list and the adapter list, in this order.
    void release();

    // Driver of the first managed adapter of a host number; null if there is none.
    const char *driverOfHost(int32_t host) const;
    bool isUSB(int32_t host) const { return usbHosts_.find(host, hostIsLess) >= 0; }

    ListHolder<USBHostEntry> usb;
    ListHolder<SCSIHostEntry> hosts; // managed adapters
    NoSCSIInfo *pleafNoSCSI_Tbl = nullptr;
    bool checkUnmanaged = false;

private:
    SortedIndex<int32_t> usbHosts_;
    SortedIndex<int32_t> managedHosts_;
};

} // namespace tavstrg

// 1 when a host number is that of a USB adapter, else 0.
int TAVStorageUSBCheck(const tavstrg::DeviceFilter &filter, int32_t host);

namespace tavstrg {

// Whether a device is on the unmanaged-device list; no device is while the check is off.
bool isListedUnmanaged(const DeviceFilter &filter, const SCSIDeviceInfo &device);

// Whether a device's host adapter leaves it out. driver: that of the adapter, null if it is not managed.
enum class HostVerdict : uint8_t { managed, usb, noDriver };
HostVerdict judgeHost(const DeviceFilter &filter, int32_t host, const char *driver);

// Whether a device gets entries in the tables: it has a type, its host adapter is managed and no USB adapter, and it is
// no disk on the unmanaged-device list.
bool isManagedDevice(const DeviceFilter &filter, const SCSIDeviceInfo &device);

} // namespace tavstrg

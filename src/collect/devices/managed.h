// SPDX-License-Identifier: Apache-2.0
// What decides, besides a SCSI device itself, whether the device is managed.
#pragma once

#include "collect/base/flat_table.h"
#include "collect/inf/noscsi_inf.h"
#include "collect/scsi/scsi_discovery.h"

#include <cstdint>

namespace tavstrg {

// The adapter lists and the unmanaged-device list (pleafNoSCSI_Tbl) of one walk over the SCSI devices.
class SCSISurroundings {
public:
    SCSISurroundings() = default;
    ~SCSISurroundings() { release(); }
    SCSISurroundings(const SCSISurroundings &) = delete;
    SCSISurroundings &operator=(const SCSISurroundings &) = delete;

    // Each 0, or -1.
    int loadUSB();
    int loadHosts();
    int loadUnmanaged(); // an absent list switches the check off
    // Frees the unmanaged-device list, the USB list and the adapter list, in this order.
    void release();

    ListHolder<USBHostEntry> usb;
    ListHolder<SCSIHostEntry> hosts; // managed adapters
    bool checkUnmanaged = false;
};

// Driver of the first managed adapter of a host number; null when there is none.
const char *driverOfHost(const SCSISurroundings &around, int32_t host);

} // namespace tavstrg

// 1 when a host number is that of a USB adapter, else 0.
int TAVStorageUSBCheck(const tavstrg::SCSISurroundings &around, int32_t host);

namespace tavstrg {

// Whether a device is on the unmanaged-device list; no device is while the check is off.
bool isListedUnmanaged(const SCSISurroundings &around, const SCSIDeviceInfo &device);

// What becomes of a device before its class is looked at.
enum class HostVerdict : uint8_t { managed, usb, noDriver };
HostVerdict judgeHost(const SCSISurroundings &around, const SCSIDeviceInfo &device);

// Whether a device gets entries in the tables: it has a type, hangs on a managed adapter that is no USB adapter, and is
// no disk on the unmanaged-device list.
bool isManagedDevice(const SCSISurroundings &around, const SCSIDeviceInfo &device);

} // namespace tavstrg

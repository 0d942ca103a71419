// SPDX-License-Identifier: Apache-2.0
// The SCSI device table, and the class tables' entries of SCSI devices.
#pragma once

#include "collect/collection/device_tables.h"
#include "collect/devices/disk_names.h"
#include "collect/devices/managed.h"

#include <string_view>
// Fills the tables with the managed SCSI devices of the discovery list: 0, or -1.
int MakeSCSIDeviceTable();

namespace tavstrg {

// The two walks over the discovery list: count into the totals; fill the tables, until the SCSI table is full. The
// second returns 0, or -1 also when a managed device is left over.
void countSCSIDevices(const SCSIDeviceInfo *list, const SCSISurroundings &around);
int fillSCSIDevices(const SCSIDeviceInfo *list, const SCSIDiskNameTable *names, const SCSISurroundings &around);

// The next entry of the SCSI device table, as far as the discovery list tells it.
SCSIDeviceEntry newSCSIDeviceEntry(const SCSIDeviceInfo &device);

} // namespace tavstrg

// Transfer width of a device's bus: 0, or -1 when the adapter's driver is not among the managed ones. No class
// publishes it.
int GetSCSIDevSpeed(const tavstrg::SCSIDeviceInfo &device, std::string_view driver, const char **width);

// Each writes the next entry of its class table for the next entry of the SCSI device table, with gDriverName: 0, or
// -1.
int MakeSCSIHDDevice(const char *devName);
int MakeSCSITapeDevice();
int MakeSCSICdromDevice();
int MakeSCSIOMDevice();
int MakeSCSIMiscDevice();

// SPDX-License-Identifier: Apache-2.0
// The SCSI device table, and the class tables' entries of SCSI devices.
#pragma once

#include "collect/collection/device_kinds.h"
#include "collect/collection/device_tables.h"
#include "collect/devices/device_filter.h"
#include "collect/devices/disk_asker.h"

#include <string_view>

// Fills the tables with the managed SCSI devices of the discovery list. Returns 0, or -1.
int MakeSCSIDeviceTable();

namespace tavstrg {

// The two walks over the discovery list: count into the totals; fill the tables, until the SCSI table is full. The
// second returns 0, or -1 also when a managed device is left over.
void countSCSIDevices(const SCSIDeviceInfo *list, const DeviceFilter &filter);
int fillSCSIDevices(const SCSIDeviceInfo *list, DiskAsker &asker, const DeviceFilter &filter);

// The next entry of the SCSI device table, as far as the discovery list has its values.
SCSIDeviceEntry newSCSIDeviceEntry(const SCSIDeviceInfo &device, const DeviceKind &kind);

} // namespace tavstrg

// Transfer width of a device's bus. Returns 0, or -1 when the adapter's driver is not among the managed ones. No class
// publishes it.
int GetSCSIDevSpeed(const tavstrg::SCSIDeviceInfo &device, std::string_view driver, const char **width);

// Each writes the next entry of its class table for the next entry of the SCSI device table. Returns 0, or -1.
// gDriverName is the driver of the device's host adapter.
int MakeSCSIHDDevice(const char *devName, std::string_view gDriverName);
int MakeSCSITapeDevice(std::string_view gDriverName);
int MakeSCSICdromDevice(std::string_view gDriverName);
int MakeSCSIOMDevice(std::string_view gDriverName);
int MakeSCSIMiscDevice(std::string_view gDriverName);

namespace tavstrg {

// MakeSCSIHDDevice for the disk that the asker is at.
int makeSCSIDisk(const char *devName, std::string_view gDriverName, DiskAsker &asker);

} // namespace tavstrg

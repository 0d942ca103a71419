// SPDX-License-Identifier: Apache-2.0
// The IDE device table, and the class tables' entries of IDE devices.
#pragma once

#include "collect/collection/device_tables.h"
#include "collect/ide/ide_discovery.h"

// Fills the tables with the devices of the IDE discovery list. Returns 0, or -1, also for an empty list.
int MakeIDEDeviceTable();

// DeviceType of an IDE device, 2 disk, 3 CD-ROM, 1 other; -1 for a null device or a media text without an end.
int GetIDEDevType(const tavstrg::IDEDeviceInfo *device);
// Drive position from the device's letter: 2 master, 3 slave, 1 unknown.
uint16_t GetIDEDevChannel(const tavstrg::IDEDeviceInfo &device);
// Model into the entry. Returns 0, or -1 for a text without an end.
int GetIDEDevModel(const tavstrg::IDEDeviceInfo &device, tavstrg::IDEDeviceEntry *entry);
// Index of the controller that the device hangs on, 65535 if there is none. Returns 0, or -1 when the controller tables
// do not have what the discovery list has.
int GetIDEDeviceControllerIndex(const tavstrg::IDEDeviceInfo &device, uint16_t *index);
// Driver of a CD-ROM drive into its entry. Returns 0, or -1 for a text without an end.
int GetIDECdromDriver(const tavstrg::IDEDeviceInfo &device, tavstrg::CdromDeviceEntry *entry);

// Each writes the next entry of its class table for the next entry of the IDE device table. Returns 0, or -1.
int MakeIDEHDDevice(const tavstrg::IDEDeviceInfo &device);
int MakeIDECdromDevice(const tavstrg::IDEDeviceInfo &device);
int MakeIDEMiscDevice(const tavstrg::IDEDeviceInfo &device);

namespace tavstrg {

// One device into its tables. Returns 0, or -1.
int makeIDEDevice(const IDEDeviceInfo *device);
// Capacity of an IDE disk in MiB.
uint64_t ideCapacityMiB(const IDEDeviceInfo &device);

} // namespace tavstrg

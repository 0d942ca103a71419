// SPDX-License-Identifier: Apache-2.0
// Entries of IDE devices in the class tables.

#include "collect/devices/device_number.h"
#include "collect/devices/ide_table.h"
#include "runtime/field_text.h"

#include <algorithm>

namespace {

constexpr uint16_t kInterfaceTypeIDE = 1;
constexpr uint16_t kIDEWord = 65534;

template <class Entry> Entry newClassEntry(int32_t written, const IDEDeviceInfo &device)
{
    Entry entry = {};
    entry.Index = static_cast<uint16_t>(written + 1);
    entry.InterfaceType = kInterfaceTypeIDE;
    entry.InterfaceTypeIndex = static_cast<uint16_t>(ide_dev_cnt + 1);
    copyText(entry.driverName, fieldText(device.driver));
    copyText(entry.driverVersion, "Unknown");
    return entry;
}

template <class Entry> int finish(Entry *table, int32_t capacity, int32_t &count, const Entry &entry)
{
    if (!appendEntry(table, capacity, count, entry)) {
        return TRACED(-1, kFailure, "_OUT_ ret=[%d]", -1);
    }
    return TRACED(0, kDetail, "_OUT_ ret=[%d]", 0);
}

} // namespace

uint64_t ideCapacityMiB(const IDEDeviceInfo &device)
{
    constexpr uint64_t kSectorsPerMiB = 2048; // of 512 bytes
    const auto capacity = static_cast<uint64_t>(std::max<int64_t>(device.capacity, 0));
    return device.capacityInMiB ? capacity : capacity / kSectorsPerMiB;
}

int GetIDECdromDriver(const IDEDeviceInfo &device, CdromDeviceEntry *entry)
{
    const TraceScope scope;
    TRACE(kDetail, "_IN_");
    if (fieldText(device.driver).size() == sizeof device.driver) {
        return TRACED(-1, kFailure, "_OUT_ ret=[%d]", -1);
    }
    copyText(entry->driverName, fieldText(device.driver));
    return TRACED(0, kDetail, "_OUT_ driver=[%s]", entry->driverName);
}

int MakeIDEHDDevice(const IDEDeviceInfo &device)
{
    const TraceScope scope;
    TRACE(kDetail, "_IN_");
    auto disk = newClassEntry<HardDiskEntry>(hd_dev_cnt, device);
    disk.unknownWord = kIDEWord;
    disk.CylindersPerUnit = static_cast<uint64_t>(device.cylinders);
    disk.TracksPerCylinder = static_cast<uint64_t>(device.heads);
    disk.SectorsPerTrack = static_cast<uint64_t>(device.sectors);
    disk.Capacity = ideCapacityMiB(device);
    disk.DeviceNumber = ideDiskDeviceNumber(fieldText(device.name));
    copyText(disk.DevPath, fieldText(device.name)); // the bare name: no SMART command is sent to an IDE disk
    disk.DevKind = kDevKindAta;
    disk.SmartPredict = 0;
    disk.SmartSupport = 1;
    disk.SmartEnableState = 0;
    return finish(pHDDevTbl, TotalHDDevice, hd_dev_cnt, disk);
}

int MakeIDECdromDevice(const IDEDeviceInfo &device)
{
    const TraceScope scope;
    TRACE(kDetail, "_IN_");
    auto cdrom = newClassEntry<CdromDeviceEntry>(cdrom_dev_cnt, device);
    cdrom.ideWord = kIDEWord;
    if (GetIDECdromDriver(device, &cdrom) < 0) {
        return TRACED(-1, kFailure, "_OUT_ ret=[%d]", -1);
    }
    return finish(pCdromDevTbl, TotalCdromDevice, cdrom_dev_cnt, cdrom);
}

int MakeIDEMiscDevice(const IDEDeviceInfo &device)
{
    const TraceScope scope;
    TRACE(kDetail, "_IN_");
    return finish(pMiscDevTbl, TotalMiscDevice, misc_dev_cnt, newClassEntry<ClassDeviceEntry>(misc_dev_cnt, device));
}

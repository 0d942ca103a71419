// SPDX-License-Identifier: Apache-2.0
// Entries of devices in the tables of their classes.
#include "collect/base/flat_table.h"
#include "collect/collection/collection.h"
#include "collect/devices/device_number.h"
#include "collect/devices/ide_table.h"
#include "collect/devices/scsi_table.h"
#include "runtime/field_text.h"

#include <algorithm>

using namespace tavstrg;

namespace {

constexpr uint16_t kIDEWord = 65534;

// An entry that follows the written ones of its class and points to the device entry that is written next.
template <class Entry>
Entry newClassEntry(int32_t written, uint16_t interfaceType, int32_t interfaceEntries, std::string_view driver)
{
    Entry entry = {};
    entry.Index = static_cast<uint16_t>(written + 1);
    entry.InterfaceType = interfaceType;
    entry.InterfaceTypeIndex = static_cast<uint16_t>(interfaceEntries + 1);
    copyText(entry.driverName, driver);
    copyText(entry.driverVersion, "Unknown");
    return entry;
}

template <class Entry> Entry newSCSIEntry(int32_t written, std::string_view driver)
{
    return newClassEntry<Entry>(written, kInterfaceScsi, collection().scsi_dev_cnt, driver);
}

template <class Entry> Entry newIDEEntry(int32_t written, const IDEDeviceInfo &device)
{
    return newClassEntry<Entry>(written, kInterfaceIde, collection().ide_dev_cnt, fieldText(device.driver));
}

template <class Entry> int appendTraced(Entry *table, int32_t capacity, int32_t &count, const Entry &entry)
{
    if (!appendEntry(table, capacity, count, entry)) {
        return TRACED(-1, kFailure, "_OUT_ ret=[%d]", -1);
    }
    return TRACED(0, kDetail, "_OUT_ ret=[%d]", 0);
}

HardDiskEntry newDisk(const char *devName, std::string_view driver)
{
    auto disk = newSCSIEntry<HardDiskEntry>(collection().hd_dev_cnt, driver);
    disk.unknownWord = 65534;
    disk.DeviceNumber = scsiDiskDeviceNumber(collection().scsi_hd_cnt - 1);
    beginDescription(disk, devName);
    return disk;
}

} // namespace

int MakeSCSIHDDevice(const char *devName, std::string_view gDriverName)
{
    AskNow asker(devName == nullptr ? "" : devName);
    return tavstrg::makeSCSIDisk(devName, gDriverName, asker);
}

int tavstrg::makeSCSIDisk(const char *devName, std::string_view gDriverName, DiskAsker &asker)
{
    const TraceScope scope("MakeSCSIHDDevice");
    TRACE(kDetail, "_IN_");
    if (devName == nullptr) {
        return TRACED(-1, kFailure, "_OUT_ param(devName) Failure!!");
    }
    HardDiskEntry disk = newDisk(devName, gDriverName);
    if (asker.describe(disk) < 0) {
        return TRACED(-1, kFailure, "_OUT_ ret=[%d]", -1);
    }
    return appendTraced(collection().pHDDevTbl, collection().TotalHDDevice, collection().hd_dev_cnt, disk);
}

int MakeSCSITapeDevice(std::string_view gDriverName)
{
    const TraceScope scope;
    TRACE(kDetail, "_IN_");
    auto tape = newSCSIEntry<TapeDeviceEntry>(collection().tape_dev_cnt, gDriverName);
    tape.IndexAgain = tape.Index;
    return appendTraced(collection().pTapeDevTbl, collection().TotalTapeDevice, collection().tape_dev_cnt, tape);
}

int MakeSCSICdromDevice(std::string_view gDriverName)
{
    const TraceScope scope;
    TRACE(kDetail, "_IN_");
    return appendTraced(collection().pCdromDevTbl, collection().TotalCdromDevice, collection().cdrom_dev_cnt,
                        newSCSIEntry<CdromDeviceEntry>(collection().cdrom_dev_cnt, gDriverName));
}

int MakeSCSIOMDevice(std::string_view gDriverName)
{
    const TraceScope scope;
    TRACE(kDetail, "_IN_");
    return appendTraced(collection().pOMDevTbl, collection().TotalOMDevice, collection().om_dev_cnt,
                        newSCSIEntry<ClassDeviceEntry>(collection().om_dev_cnt, gDriverName));
}

int MakeSCSIMiscDevice(std::string_view gDriverName)
{
    const TraceScope scope;
    TRACE(kDetail, "_IN_");
    return appendTraced(collection().pMiscDevTbl, collection().TotalMiscDevice, collection().misc_dev_cnt,
                        newSCSIEntry<ClassDeviceEntry>(collection().misc_dev_cnt, gDriverName));
}

uint64_t tavstrg::ideCapacityMiB(const IDEDeviceInfo &device)
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
    auto disk = newIDEEntry<HardDiskEntry>(collection().hd_dev_cnt, device);
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
    return appendTraced(collection().pHDDevTbl, collection().TotalHDDevice, collection().hd_dev_cnt, disk);
}

int MakeIDECdromDevice(const IDEDeviceInfo &device)
{
    const TraceScope scope;
    TRACE(kDetail, "_IN_");
    auto cdrom = newIDEEntry<CdromDeviceEntry>(collection().cdrom_dev_cnt, device);
    cdrom.ideWord = kIDEWord;
    if (GetIDECdromDriver(device, &cdrom) < 0) {
        return TRACED(-1, kFailure, "_OUT_ ret=[%d]", -1);
    }
    return appendTraced(collection().pCdromDevTbl, collection().TotalCdromDevice, collection().cdrom_dev_cnt, cdrom);
}

int MakeIDEMiscDevice(const IDEDeviceInfo &device)
{
    const TraceScope scope;
    TRACE(kDetail, "_IN_");
    return appendTraced(collection().pMiscDevTbl, collection().TotalMiscDevice, collection().misc_dev_cnt,
                        newIDEEntry<ClassDeviceEntry>(collection().misc_dev_cnt, device));
}

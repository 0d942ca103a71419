// SPDX-License-Identifier: Apache-2.0
// Entries of devices in the tables of their classes.
#include "collect/devices/device_number.h"
#include "collect/devices/ide_table.h"
#include "collect/devices/scsi_table.h"
#include "devcmd/geometry.h"
#include "devcmd/smart/smart_watch.h"
#include "devcmd/transport/transport.h"
#include "runtime/cancel.h"
#include "runtime/field_text.h"

#include <algorithm>

using namespace tavstrg;

namespace {

constexpr uint16_t kInterfaceTypeSCSI = 0;
constexpr uint16_t kInterfaceTypeIDE = 1;
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

template <class Entry> Entry newSCSIEntry(int32_t written)
{
    return newClassEntry<Entry>(written, kInterfaceTypeSCSI, scsi_dev_cnt, fieldText(gDriverName));
}

template <class Entry> Entry newIDEEntry(int32_t written, const IDEDeviceInfo &device)
{
    return newClassEntry<Entry>(written, kInterfaceTypeIDE, ide_dev_cnt, fieldText(device.driver));
}

template <class Entry> int finish(Entry *table, int32_t capacity, int32_t &count, const Entry &entry)
{
    if (!appendEntry(table, capacity, count, entry)) {
        return TRACED(-1, kFailure, "_OUT_ ret=[%d]", -1);
    }
    return TRACED(0, kDetail, "_OUT_ ret=[%d]", 0);
}

HardDiskEntry newDisk(const char *devName)
{
    auto disk = newSCSIEntry<HardDiskEntry>(hd_dev_cnt);
    disk.unknownWord = 65534;
    disk.DeviceNumber = scsiDiskDeviceNumber(scsi_hd_cnt - 1);
    copyText(disk.DevPath, devName);
    disk.DevKind = kDevKindScsi;
    disk.SmartPredict = 0;
    disk.SmartSupport = 1;
    disk.SmartEnableState = 0;
    return disk;
}

} // namespace

int MakeSCSIHDDevice(const char *devName)
{
    const TraceScope scope;
    TRACE(kDetail, "_IN_");
    if (devName == nullptr) {
        return TRACED(-1, kFailure, "_OUT_ param(devName) Failure!!");
    }
    HardDiskEntry disk = newDisk(devName);
    if (GetSCSIHDGeometry(devName, &disk) < 0) {
        return TRACED(-1, kFailure, "_OUT_ ret=[%d]", -1);
    }
    cancellationPoint(); // a stop need not wait for all the commands of a disk that does not answer
    fetch_sata_type(&disk);
    cancellationPoint();
    TAVStorageSmartWatch(&disk);
    return finish(pHDDevTbl, TotalHDDevice, hd_dev_cnt, disk);
}

int MakeSCSITapeDevice()
{
    const TraceScope scope;
    TRACE(kDetail, "_IN_");
    auto tape = newSCSIEntry<TapeDeviceEntry>(tape_dev_cnt);
    tape.IndexAgain = tape.Index;
    return finish(pTapeDevTbl, TotalTapeDevice, tape_dev_cnt, tape);
}

int MakeSCSICdromDevice()
{
    const TraceScope scope;
    TRACE(kDetail, "_IN_");
    return finish(pCdromDevTbl, TotalCdromDevice, cdrom_dev_cnt, newSCSIEntry<CdromDeviceEntry>(cdrom_dev_cnt));
}

int MakeSCSIOMDevice()
{
    const TraceScope scope;
    TRACE(kDetail, "_IN_");
    return finish(pOMDevTbl, TotalOMDevice, om_dev_cnt, newSCSIEntry<ClassDeviceEntry>(om_dev_cnt));
}

int MakeSCSIMiscDevice()
{
    const TraceScope scope;
    TRACE(kDetail, "_IN_");
    return finish(pMiscDevTbl, TotalMiscDevice, misc_dev_cnt, newSCSIEntry<ClassDeviceEntry>(misc_dev_cnt));
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
    auto disk = newIDEEntry<HardDiskEntry>(hd_dev_cnt, device);
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
    auto cdrom = newIDEEntry<CdromDeviceEntry>(cdrom_dev_cnt, device);
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
    return finish(pMiscDevTbl, TotalMiscDevice, misc_dev_cnt, newIDEEntry<ClassDeviceEntry>(misc_dev_cnt, device));
}

// SPDX-License-Identifier: Apache-2.0
// Entries of SCSI devices in the class tables.

#include "collect/devices/device_number.h"
#include "collect/devices/scsi_table.h"
#include "devcmd/geometry.h"
#include "devcmd/smart/smart_watch.h"
#include "devcmd/transport/transport.h"
#include "runtime/cancel.h"
#include "runtime/field_text.h"

namespace {

template <class Entry> Entry newClassEntry(int32_t written)
{
    Entry entry = {};
    entry.Index = static_cast<uint16_t>(written + 1);
    entry.InterfaceType = 0;
    entry.InterfaceTypeIndex = static_cast<uint16_t>(scsi_dev_cnt + 1);
    copyText(entry.driverName, fieldText(gDriverName));
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

HardDiskEntry newDisk(const char *devName)
{
    auto disk = newClassEntry<HardDiskEntry>(hd_dev_cnt);
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
    auto tape = newClassEntry<TapeDeviceEntry>(tape_dev_cnt);
    tape.IndexAgain = tape.Index;
    return finish(pTapeDevTbl, TotalTapeDevice, tape_dev_cnt, tape);
}

int MakeSCSICdromDevice()
{
    const TraceScope scope;
    TRACE(kDetail, "_IN_");
    return finish(pCdromDevTbl, TotalCdromDevice, cdrom_dev_cnt, newClassEntry<CdromDeviceEntry>(cdrom_dev_cnt));
}

int MakeSCSIOMDevice()
{
    const TraceScope scope;
    TRACE(kDetail, "_IN_");
    return finish(pOMDevTbl, TotalOMDevice, om_dev_cnt, newClassEntry<ClassDeviceEntry>(om_dev_cnt));
}

int MakeSCSIMiscDevice()
{
    const TraceScope scope;
    TRACE(kDetail, "_IN_");
    return finish(pMiscDevTbl, TotalMiscDevice, misc_dev_cnt, newClassEntry<ClassDeviceEntry>(misc_dev_cnt));
}

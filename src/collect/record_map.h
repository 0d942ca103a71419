// SPDX-License-Identifier: Apache-2.0
// From table entries to records. Texts longer than a record's field are cut; fields without a source stay zero.
#pragma once

#include "collect/collection/controller_tables.h"
#include "collect/collection/device_tables.h"
#include "records/records.h"

#include <span>

namespace tavstrg {

// Driver and version are those of the first driver entry with the controller's driver index; empty if there is none.
StrgCtrlRec controllerRecord(const ControllerEntry &entry, std::span<const DriverEntry> drivers);
StrgScsiRec scsiRecord(const SCSIDeviceEntry &entry);
StrgIdeRec ideRecord(const IDEDeviceEntry &entry);
// Geometry and capacity keep their low 32 bits; every interface type but IDE is SCSI.
StrgHddRec hardDiskRecord(const HardDiskEntry &entry);
StrgLifeRec lifeSpanRecord(const LifeSpanEntry &entry);

// CD-ROMs, tapes, optical memories and other devices: the first three words of their entries.
template <class Entry> StrgDevRec deviceRecord(const Entry &entry)
{
    return {entry.Index, static_cast<int16_t>(entry.InterfaceType), entry.InterfaceTypeIndex, 0};
}

} // namespace tavstrg

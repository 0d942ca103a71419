// SPDX-License-Identifier: Apache-2.0
#include "collect/record_map.h"

#include "runtime/field_text.h"

#include <algorithm>

using namespace tavstrg;

StrgCtrlRec tavstrg::controllerRecord(const ControllerEntry &entry, std::span<const DriverEntry> drivers)
{
    StrgCtrlRec record = {};
    record.Index = entry.Index;
    record.InterfaceType = static_cast<int16_t>(entry.InterfaceType);
    copyText(record.Model, fieldText(entry.Model));
    record.InterruptNumber = static_cast<uint16_t>(entry.InterruptNumber);
    const auto driver = std::find_if(drivers.begin(), drivers.end(), [&](const DriverEntry &candidate) {
        return candidate.index == entry.driverIndex;
    });
    if (driver != drivers.end()) {
        copyText(record.Driver, fieldText(driver->name));
        copyText(record.DriverVersion, fieldText(driver->version));
    }
    return record;
}

StrgScsiRec tavstrg::scsiRecord(const SCSIDeviceEntry &entry)
{
    StrgScsiRec record = {};
    record.Index = entry.Index;
    record.DeviceType = static_cast<int16_t>(entry.DeviceType);
    record.DeviceTypeIndex = entry.DeviceTypeIndex;
    record.ControllerIndex = entry.ControllerIndex;
    record.Bus = entry.Bus;
    record.TargetID = entry.TargetID;
    record.LUN = entry.LUN;
    copyText(record.Vendor, fieldText(entry.vendor));
    copyText(record.Model, fieldText(entry.model));
    copyText(record.FirmwareRevision, fieldText(entry.revision));
    copyText(record.SerialNumber, fieldText(entry.SerialNumber));
    return record;
}

StrgIdeRec tavstrg::ideRecord(const IDEDeviceEntry &entry)
{
    StrgIdeRec record = {};
    record.Index = entry.Index;
    record.DeviceType = static_cast<int16_t>(entry.DeviceType);
    record.DeviceTypeIndex = entry.DeviceTypeIndex;
    record.ControllerIndex = entry.ControllerIndex;
    record.IDEConfiguration = static_cast<int16_t>(entry.IDEConfiguration);
    copyText(record.Model, fieldText(entry.model));
    copyText(record.FirmwareRevision, fieldText(entry.revision));
    copyText(record.SerialNumber, fieldText(entry.SerialNumber));
    return record;
}

StrgHddRec tavstrg::hardDiskRecord(const HardDiskEntry &entry)
{
    StrgHddRec record = {};
    record.Index = entry.Index;
    record.InterfaceType = entry.InterfaceType == 1 ? 1 : 0;
    record.InterfaceTypeIndex = entry.InterfaceTypeIndex;
    record.CylindersPerUnit = static_cast<uint32_t>(entry.CylindersPerUnit);
    record.TracksPerCylinder = static_cast<uint32_t>(entry.TracksPerCylinder);
    record.SectorsPerTrack = static_cast<uint32_t>(entry.SectorsPerTrack);
    record.Capacity = static_cast<uint32_t>(entry.Capacity);
    record.SmartStatus = entry.SmartPredict;
    return record;
}

StrgLifeRec tavstrg::lifeSpanRecord(const LifeSpanEntry &entry)
{
    return {entry.Index, static_cast<int16_t>(entry.HDDIndex), entry.EnduranceRemaining, 0};
}

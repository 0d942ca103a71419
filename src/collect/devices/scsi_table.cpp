// SPDX-License-Identifier: Apache-2.0
#include "collect/devices/scsi_table.h"

#include "collect/collection/controller_tables.h"
#include "collect/collection/discovery_lists.h"
#include "collect/devices/life_span_table.h"
#include "collect/devices/serial_number.h"
#include "runtime/cancel.h"
#include "runtime/field_text.h"

using namespace tavstrg;

namespace {

void traceSkipped(const char *why, const SCSIDeviceInfo &device)
{
    TRACE(kDetail, "%s", why);
    TRACE(kDetail, "    host=%d,vender=%s,model=%s,scsirev=%s", device.host, device.vendor, device.model,
          device.scsiRev);
    TRACE(kDetail, "    type=%s ansirevision=%s,channel=%d,Id=%d,lun=%d", device.type, device.ansiRev, device.channel,
          device.id, device.lun);
}

// Makers of the other classes' entries, indexed by DeviceClass; a disk needs more than its class.
using Maker = int (*)();
constexpr Maker kMakers[kDeviceClassCount] = {nullptr, MakeSCSICdromDevice, MakeSCSITapeDevice, MakeSCSIOMDevice,
                                              MakeSCSIMiscDevice};

int appendSCSIDevice(const SCSIDeviceEntry &entry)
{
    return appendEntry(pSCSIDevTbl, TotalSCSIDevice, scsi_dev_cnt, entry) ? 0 : -1;
}

int fillDisk(const SCSIDeviceInfo &device, const SCSIDiskNameTable *names, const SCSISurroundings &around,
             SCSIDeviceEntry &entry)
{
    char name[kDiskNameSize] = "";
    if (TAVStorageGetSCSIDeviceName(names, &device, name) < 0) {
        return TRACED(-1, kFailure, "TAVStorageGetSCSIDeviceName() failed!!");
    }
    if (isListedUnmanaged(around, device)) {
        traceSkipped("** NoManage Continue **", device);
        return 0;
    }
    if (TAVStorageGetSCSIDeviceSerialNumber(name, entry.SerialNumber) < 0) {
        return TRACED(-1, kFailure, "TAVStorageGetSCSIDeviceSerialNumber() failed!!");
    }
    cancellationPoint(); // a stop need not wait for all the commands of a disk that does not answer
    if (MakeSCSIHDDevice(name) < 0) {
        return TRACED(-1, kFailure, "MakeSCSIHDDevice() failed!!");
    }
    cancellationPoint();
    GetLifeSpanInfo(name, &entry);
    return appendSCSIDevice(entry);
}

int fillByClass(const SCSIDeviceInfo &device, const SCSIDiskNameTable *names, const SCSISurroundings &around,
                SCSIDeviceEntry &entry)
{
    const DeviceKind &kind = scsiKindOf(fieldText(device.type));
    entry.DeviceType = kind.deviceType;
    entry.DeviceTypeIndex = static_cast<uint16_t>(*kClassCounters[kind.deviceClass].written + 1);
    if (kind.deviceClass == kHardDisk) {
        return fillDisk(device, names, around, entry);
    }
    return kMakers[kind.deviceClass]() < 0 ? -1 : appendSCSIDevice(entry);
}

// One device of the walk: 0, also when it is left out, or -1.
int fillDevice(const SCSIDeviceInfo &device, const SCSIDiskNameTable *names, const SCSISurroundings &around)
{
    SCSIDeviceEntry entry = newSCSIDeviceEntry(device);
    const char *const driver = driverOfHost(around, device.host);
    copyText(gDriverName, driver == nullptr ? "Unknown" : driver);
    const char *width = nullptr;
    if (GetSCSIDevSpeed(device, gDriverName, &width) < 0) {
        TRACE(kDetail, "Can't get scsi device speed");
    }
    if (scsiKindOf(fieldText(device.type)).deviceClass == kHardDisk) {
        ++scsi_hd_cnt;
    }
    if (device.type[0] == '\0') {
        return 0;
    }
    switch (judgeHost(around, device)) {
    case HostVerdict::usb:
        return TRACED(0, kDetail, "The Device maybe USB Device:Host = %d,Vendor = %s", device.host, device.vendor);
    case HostVerdict::noDriver:
        traceSkipped("######## Do not management ########", device);
        return 0;
    case HostVerdict::managed:
        break;
    }
    return fillByClass(device, names, around, entry);
}

} // namespace

SCSIDeviceEntry tavstrg::newSCSIDeviceEntry(const SCSIDeviceInfo &device)
{
    SCSIDeviceEntry entry = {};
    entry.Index = static_cast<uint16_t>(scsi_dev_cnt + 1);
    entry.ControllerIndex = controllerIndexOfHost(device.host);
    entry.TargetID = static_cast<uint16_t>(device.id);
    entry.Bus = static_cast<uint16_t>(device.channel);
    entry.LUN = static_cast<uint16_t>(device.lun);
    if (device.vendor[0] != '\0') {
        copyText(entry.vendor, fieldText(device.vendor));
        copyText(entry.model, fieldText(device.model));
        copyText(entry.revision, fieldText(device.scsiRev));
    }
    const DeviceKind &kind = scsiKindOf(fieldText(device.type));
    entry.wordsBefore[0] = entry.wordsBefore[1] = kUnknownWord;
    entry.classCodes[0] = kind.codes[0];
    entry.classCodes[1] = kind.codes[1];
    entry.wordsAfter[0] = entry.wordsAfter[1] = kUnknownWord;
    entry.wordsAfter[2] = 1;
    return entry;
}

int GetSCSIDevSpeed(const SCSIDeviceInfo &device, std::string_view driver, const char **width)
{
    const TraceScope scope;
    TRACE(kDetail, "_IN_ host=[%d] id=[%d]", device.host, device.id);
    // Neither kernel interface tells what was negotiated; target ids above 7 exist on wide buses only (SPI).
    constexpr int32_t kLastNarrowId = 7;
    for (const auto *type = g_SCSIControllerTypeDetail; type != nullptr; type = type->next) {
        if (fieldText(type->driver) == driver) {
            *width = device.id > kLastNarrowId ? "Wide" : "Narrow";
            return TRACED(0, kDetail, "_OUT_ (0) [%s]", *width);
        }
    }
    return TRACED(-1, kDetail, "_OUT_ (-1)");
}

int tavstrg::fillSCSIDevices(const SCSIDeviceInfo *list, const SCSIDiskNameTable *names, const SCSISurroundings &around)
{
    const SCSIDeviceInfo *device = list;
    for (; device != nullptr && scsi_dev_cnt < TotalSCSIDevice; device = device->next) {
        cancellationPoint();
        if (fillDevice(*device, names, around) < 0) {
            return -1;
        }
    }
    // The table is full. What is left over was left out when it was counted, unless something changed since.
    for (; device != nullptr; device = device->next) {
        if (isManagedDevice(around, *device)) {
            return TRACED(-1, kFailure, "TotalSCSIDevice=[%d] is too small Failure!!", TotalSCSIDevice);
        }
    }
    return 0;
}

int MakeSCSIDeviceTable()
{
    const TraceScope scope;
    TRACE(kDetail, "_IN_");
    SCSIDiskNameTable names;
    if (GetSCSIDeviceName_IDArray(g_SCSIDeviceInfo, &names) == 0) {
        return TRACED(-1, kFailure, "_OUT_ ret is 0!");
    }
    if (g_SCSIDeviceInfo == nullptr) { // cannot be met: the name table fails first without a list
        return TRACED(-1, kFailure, "_OUT_ SCSI Device list is NULL");
    }
    SCSISurroundings around;
    if (around.loadUSB() < 0) {
        return TRACED(-1, kFailure, "_OUT_ TAVStorageGetUSBCtrl() failed");
    }
    const int controllers = GetSCSIControllerNumber();
    if (controllers == 0) {
        TRACE(kDetail, "_OUT_ No SCSI Controller is found");
    } else if (controllers < 0) {
        return TRACED(-1, kFailure, "_OUT_ Get SCSI Controller Error");
    }
    if (around.loadHosts() < 0) {
        return TRACED(-1, kFailure, "_OUT_ read_proc_scsi() failed");
    }
    if (around.loadUnmanaged() < 0) {
        return TRACED(-1, kFailure, "_OUT_ CreateNoSCSIInfoTable() failed");
    }
    const int result = fillSCSIDevices(g_SCSIDeviceInfo, &names, around);
    around.release();
    return TRACED(result, result < 0 ? kFailure : kDetail, "_OUT_ ret=[%d]", result);
}

// SPDX-License-Identifier: Apache-2.0
#include "collect/devices/scsi_table.h"

#include "collect/base/flat_table.h"
#include "collect/collection/collection.h"
#include "collect/devices/ask_ahead.h"
#include "collect/devices/life_span_table.h"
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
using Maker = int (*)(std::string_view gDriverName);
constexpr Maker kMakers[kDeviceClassCount] = {nullptr, MakeSCSICdromDevice, MakeSCSITapeDevice, MakeSCSIOMDevice,
                                              MakeSCSIMiscDevice};

int appendSCSIDevice(const SCSIDeviceEntry &entry)
{
    Collection &all = collection();
    return appendEntry(all.pSCSIDevTbl, all.TotalSCSIDevice, all.scsi_dev_cnt, entry) ? 0 : -1;
}

// The device that the walk is at: what was looked up for it once, and its entry.
struct CurrentDevice {
    const SCSIDeviceInfo &info;
    const DeviceKind &kind;
    const char *driver; // of its host adapter; null when none is managed
    SCSIDeviceEntry entry;

    std::string_view driverName() const { return driver == nullptr ? "Unknown" : driver; }
};

// What is the same for all devices of the walk.
struct Walk {
    DiskAsker &asker;
    const DeviceFilter &filter;
};

int fillDisk(const Walk &walk, CurrentDevice &device)
{
    char name[kDiskPathSize] = "";
    if (walk.asker.begin(device.info, name) < 0) {
        return TRACED(-1, kFailure, "TAVStorageGetSCSIDeviceName() failed!!");
    }
    if (isListedUnmanaged(walk.filter, device.info)) {
        traceSkipped("** NoManage Continue **", device.info);
        return 0;
    }
    if (walk.asker.serialNumber(device.entry.SerialNumber) < 0) {
        return TRACED(-1, kFailure, "TAVStorageGetSCSIDeviceSerialNumber() failed!!");
    }
    cancellationPoint(); // a stop need not wait for all the commands of a disk that does not answer
    if (makeSCSIDisk(name, device.driverName(), walk.asker) < 0) {
        return TRACED(-1, kFailure, "MakeSCSIHDDevice() failed!!");
    }
    cancellationPoint();
    addLifeSpan(name, &device.entry, walk.asker);
    return appendSCSIDevice(device.entry);
}

int fillByClass(const Walk &walk, CurrentDevice &device)
{
    const DeviceClass deviceClass = device.kind.deviceClass;
    device.entry.DeviceType = device.kind.deviceType;
    device.entry.DeviceTypeIndex = static_cast<uint16_t>(countersOf(collection(), deviceClass).written + 1);
    if (deviceClass == kHardDisk) {
        return fillDisk(walk, device);
    }
    return kMakers[deviceClass](device.driverName()) < 0 ? -1 : appendSCSIDevice(device.entry);
}

// One device of the walk: 0, also when it is left out, or -1.
int fillDevice(const Walk &walk, const SCSIDeviceInfo &info)
{
    const DeviceKind &kind = scsiKindOf(fieldText(info.type));
    CurrentDevice device{info, kind, walk.filter.driverOfHost(info.host), newSCSIDeviceEntry(info, kind)};
    const char *width = nullptr;
    if (GetSCSIDevSpeed(info, device.driverName(), &width) < 0) {
        TRACE(kDetail, "Can't get scsi device speed");
    }
    if (kind.deviceClass == kHardDisk) {
        ++collection().scsi_hd_cnt;
    }
    if (info.type[0] == '\0') {
        return 0;
    }
    switch (judgeHost(walk.filter, info.host, device.driver)) {
    case HostVerdict::usb:
        return TRACED(0, kDetail, "The Device maybe USB Device:Host = %d,Vendor = %s", info.host, info.vendor);
    case HostVerdict::noDriver:
        traceSkipped("######## Do not management ########", info);
        return 0;
    case HostVerdict::managed:
        break;
    }
    return fillByClass(walk, device);
}

} // namespace

SCSIDeviceEntry tavstrg::newSCSIDeviceEntry(const SCSIDeviceInfo &device, const DeviceKind &kind)
{
    SCSIDeviceEntry entry = {};
    entry.Index = static_cast<uint16_t>(collection().scsi_dev_cnt + 1);
    entry.ControllerIndex = controllerIndexOfHost(collection(), device.host);
    entry.TargetID = static_cast<uint16_t>(device.id);
    entry.Bus = static_cast<uint16_t>(device.channel);
    entry.LUN = static_cast<uint16_t>(device.lun);
    if (device.vendor[0] != '\0') {
        copyText(entry.vendor, fieldText(device.vendor));
        copyText(entry.model, fieldText(device.model));
        copyText(entry.revision, fieldText(device.scsiRev));
    }
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
    // Neither kernel interface reports what was negotiated; target ids above 7 exist on wide buses only (SPI).
    constexpr int32_t kLastNarrowId = 7;
    for (const auto *type = collection().g_SCSIControllerTypeDetail; type != nullptr; type = type->next) {
        if (fieldText(type->driver) == driver) {
            *width = device.id > kLastNarrowId ? "Wide" : "Narrow";
            return TRACED(0, kDetail, "_OUT_ (0) [%s]", *width);
        }
    }
    return TRACED(-1, kDetail, "_OUT_ (-1)");
}

int tavstrg::fillSCSIDevices(const SCSIDeviceInfo *list, DiskAsker &asker, const DeviceFilter &filter)
{
    const Walk walk{asker, filter};
    const SCSIDeviceInfo *device = list;
    for (; device != nullptr && collection().scsi_dev_cnt < collection().TotalSCSIDevice; device = device->next) {
        cancellationPoint();
        if (fillDevice(walk, *device) < 0) {
            return -1;
        }
    }
    // The table is full. What is left over was left out when it was counted, unless something changed since.
    for (; device != nullptr; device = device->next) {
        if (isManagedDevice(filter, *device)) {
            return TRACED(-1, kFailure, "TotalSCSIDevice=[%d] is too small Failure!!", collection().TotalSCSIDevice);
        }
    }
    return 0;
}

namespace {

// Asks the disks as the options ask for, and fills the tables. Returns 0, or -1.
int askAndFill(const DiskNaming &naming, const DiskMethods &methods, const DeviceFilter &filter)
{
    const Collection &all = collection();
    if (all.options.has(Option::sideBySide)) {
        if (AskAhead ahead(naming, methods); ahead.ask(all.g_SCSIDeviceInfo, filter)) {
            return fillSCSIDevices(all.g_SCSIDeviceInfo, ahead, filter);
        }
    }
    AskNow now(naming, methods);
    return fillSCSIDevices(all.g_SCSIDeviceInfo, now, filter);
}

} // namespace

int MakeSCSIDeviceTable()
{
    const TraceScope scope;
    TRACE(kDetail, "_IN_");
    const DiskMethods &methods = methodsOf(collection().options);
    g_nodeUse = methods.nodes;
    SCSIDiskNameTable names;
    const DiskNaming naming = namingOf(collection().options, collection().g_SCSIDeviceInfo, names);
    if (naming.find == nullptr) {
        return TRACED(-1, kFailure, "_OUT_ ret is 0!");
    }
    if (collection().g_SCSIDeviceInfo == nullptr) { // not reached: the name table fails first without a list
        return TRACED(-1, kFailure, "_OUT_ SCSI Device list is NULL");
    }
    DeviceFilter filter;
    if (filter.loadUSB() < 0) {
        return TRACED(-1, kFailure, "_OUT_ TAVStorageGetUSBCtrl() failed");
    }
    const int controllers = GetSCSIControllerNumber();
    if (controllers == 0) {
        TRACE(kDetail, "_OUT_ No SCSI Controller is found");
    } else if (controllers < 0) {
        return TRACED(-1, kFailure, "_OUT_ Get SCSI Controller Error");
    }
    if (filter.loadHosts() < 0) {
        return TRACED(-1, kFailure, "_OUT_ read_proc_scsi() failed");
    }
    if (filter.loadUnmanaged() < 0) {
        return TRACED(-1, kFailure, "_OUT_ CreateNoSCSIInfoTable() failed");
    }
    const int result = askAndFill(naming, methods, filter);
    filter.release();
    return TRACED(result, result < 0 ? kFailure : kDetail, "_OUT_ ret=[%d]", result);
}

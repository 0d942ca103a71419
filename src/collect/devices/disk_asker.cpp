// SPDX-License-Identifier: Apache-2.0
#include "collect/devices/disk_asker.h"

#include "collect/devices/serial_number.h"
#include "devcmd/geometry.h"
#include "devcmd/open_device.h"
#include "devcmd/smart/smart_watch.h"
#include "devcmd/smart/wear.h"
#include "devcmd/transport/transport.h"
#include "runtime/cancel.h"
#include "runtime/field_text.h"
#include "runtime/trace.h"

#include <cerrno>
#include <cstring>

using namespace tavstrg;

namespace {

constexpr int16_t kUnreadable = -1; // SmartPredict

int32_t strictSerialNumber(AskedDisk &disk, char *serial)
{
    return TAVStorageGetSCSIDeviceSerialNumber(disk.path, serial);
}

int strictDescribe(AskedDisk &disk, HardDiskEntry &entry)
{
    if (GetSCSIHDGeometry(disk.path, &entry) < 0) {
        return -1;
    }
    cancellationPoint(); // a stop need not wait for all the commands of a disk that does not answer
    fetch_sata_type(&entry);
    cancellationPoint();
    TAVStorageSmartWatch(&entry);
    return 0;
}

int askedWear(AskedDisk &disk, uint8_t attribute, uint16_t *figure)
{
    return GetLifeSpanInfoIoctl(disk.path, attribute, figure);
}

void traceUnreadable(const AskedDisk &disk)
{
    TRACE(kFailure, "[%s] at %d:%d:%d:%d cannot be asked: %s", disk.path, disk.address.host, disk.address.channel,
          disk.address.id, disk.address.lun, ErrorText(disk.error).text());
}

int32_t tolerantSerialNumber(AskedDisk &disk, char *serial)
{
    char found[kSerialNumberSize] = "";
    if (disk.path[0] == '\0') { // the node of a dead disk does not answer when it is asked for its address either
        readNodePath(disk.address, disk.path);
    }
    disk.error = readAnsweredSerialNumber(disk.path, found);
    if (found[0] == '\0') {
        readKeptSerialNumber(disk.address, found);
    }
    std::memcpy(serial, found, sizeof found);
    return 0;
}

int tolerantDescribe(AskedDisk &disk, HardDiskEntry &entry)
{
    copyText(entry.DevPath, disk.path);
    if (disk.error == 0 && strictDescribe(disk, entry) < 0) {
        disk.error = EIO;
    }
    if (disk.error != 0) {
        traceUnreadable(disk);
        describeUnasked(disk, entry);
    }
    return 0;
}

int tolerantWear(AskedDisk &disk, uint8_t attribute, uint16_t *figure)
{
    return disk.error != 0 ? -1 : askedWear(disk, attribute, figure);
}

} // namespace

const DiskMethods tavstrg::kStrictMethods = {strictSerialNumber, strictDescribe, askedWear};
const DiskMethods tavstrg::kTolerantMethods = {tolerantSerialNumber, tolerantDescribe, tolerantWear};

const DiskMethods &tavstrg::methodsOf(const Options &options)
{
    return options.has(Option::diskIdentity) ? kTolerantMethods : kStrictMethods;
}

void tavstrg::beginDescription(HardDiskEntry &entry, const char *path)
{
    copyText(entry.DevPath, path);
    entry.DevKind = kDevKindScsi;
    entry.SmartPredict = 0;
    entry.SmartSupport = 1;
    entry.SmartEnableState = 0;
}

void tavstrg::describeUnasked(const AskedDisk &disk, HardDiskEntry &entry)
{
    const KernelSize size = readKernelSize(disk.address, disk.path);
    setUsualGeometry(entry, size.sectors, size.sectorSize);
    entry.SmartPredict = kUnreadable;
}

AskedDisk tavstrg::askedDisk(const SCSIDeviceInfo &device)
{
    AskedDisk disk = {};
    disk.address = {device.host, device.channel, device.id, device.lun};
    return disk;
}

const DiskAsker::Functions AskNow::kFunctions = {
    [](DiskAsker &self, const SCSIDeviceInfo &device, char *path) {
        auto &now = static_cast<AskNow &>(self);
        now.disk_ = askedDisk(device);
        const int32_t result = now.naming_.find(now.naming_.table, device, now.disk_.path);
        std::memcpy(path, now.disk_.path, sizeof now.disk_.path);
        return result;
    },
    [](DiskAsker &self, char *serial) {
        auto &now = static_cast<AskNow &>(self);
        return now.methods_.serialNumber(now.disk_, serial);
    },
    [](DiskAsker &self, HardDiskEntry &entry) {
        auto &now = static_cast<AskNow &>(self);
        return now.methods_.describe(now.disk_, entry);
    },
    [](DiskAsker &self, uint8_t attribute, uint16_t *figure) {
        auto &now = static_cast<AskNow &>(self);
        return now.methods_.wear(now.disk_, attribute, figure);
    },
};

AskNow::AskNow(const char *path) : DiskAsker(kFunctions), naming_{}, methods_(kStrictMethods)
{
    copyText(disk_.path, path);
}

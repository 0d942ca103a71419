// SPDX-License-Identifier: Apache-2.0
#include "collect/devices/disk_asker.h"

#include "collect/devices/serial_number.h"
#include "collect/devices/sleeping_disks.h"
#include "devcmd/geometry.h"
#include "devcmd/open_device.h"
#include "devcmd/smart/smart_state.h"
#include "devcmd/smart/smart_watch.h"
#include "devcmd/smart/wear.h"
#include "devcmd/transport/transport.h"
#include "endurance/endurance.h"
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

// SMART as every answer is trusted; the wear is read when it is asked for.
struct TrustingSmart {
    static constexpr NodeUse kNodes = NodeUse::kAsAsked;

    static void watch(AskedDisk &, HardDiskEntry &entry) { TAVStorageSmartWatch(&entry); }
    static int wear(AskedDisk &disk, uint8_t attribute, uint16_t *figure)
    {
        return GetLifeSpanInfoIoctl(disk.path, attribute, figure);
    }
};

// Reads the wear of a disk whose wear will be asked for.
void readWear(void *context)
{
    AskedDisk &disk = *static_cast<AskedDisk *>(context);
    const M2SSDInf *const rated = findM2SSD(g_M2SSDInf, g_M2SSDCnt, disk.model);
    if (rated != nullptr) {
        WearReading &worn = disk.worn;
        worn = {static_cast<uint8_t>(rated->attid), -1, kFigureUnknown};
        worn.result = GetLifeSpanInfoIoctl(disk.path, worn.attribute, &worn.figure);
    }
}

// SMART by what the disk reports; the wear is read while it is on.
struct ReportedSmart {
    static constexpr NodeUse kNodes = NodeUse::kReadOnly;

    static void watch(AskedDisk &disk, HardDiskEntry &entry) { watchSmartState(entry, {readWear, &disk}); }
    static int wear(AskedDisk &disk, uint8_t attribute, uint16_t *figure)
    {
        if (attribute == 0 || disk.worn.attribute != attribute || disk.worn.result < 0) {
            return -1;
        }
        *figure = disk.worn.figure;
        return 0;
    }
};

template <class Smart> int strictDescribe(AskedDisk &disk, HardDiskEntry &entry)
{
    if (GetSCSIHDGeometry(disk.path, &entry) < 0) {
        return -1;
    }
    cancellationPoint(); // a stop need not wait for all the commands of a disk that does not answer
    fetch_sata_type(&entry);
    cancellationPoint();
    Smart::watch(disk, entry);
    return 0;
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

template <class Smart> int tolerantDescribe(AskedDisk &disk, HardDiskEntry &entry)
{
    copyText(entry.DevPath, disk.path);
    if (disk.error == 0 && strictDescribe<Smart>(disk, entry) < 0) {
        disk.error = EIO;
    }
    if (disk.error != 0) {
        traceUnreadable(disk);
        describeUnasked(disk, entry);
    }
    return 0;
}

template <class Smart> int tolerantWear(AskedDisk &disk, uint8_t attribute, uint16_t *figure)
{
    return disk.error != 0 ? -1 : Smart::wear(disk, attribute, figure);
}

template <class Smart>
constexpr DiskMethods kStrict = {Smart::kNodes, strictSerialNumber, strictDescribe<Smart>, Smart::wear};
template <class Smart>
constexpr DiskMethods kTolerant = {Smart::kNodes, tolerantSerialNumber, tolerantDescribe<Smart>, tolerantWear<Smart>};

struct Pair {
    const DiskMethods &all;
    const DiskMethods &unlessLeftAlone;
};
template <const DiskMethods &methods> constexpr Pair kPair = {methods, UnlessLeftAlone<methods>::kMethods};

} // namespace

const DiskMethods tavstrg::kStrictMethods = kStrict<TrustingSmart>;

const DiskMethods &tavstrg::methodsOf(const Options &options)
{
    static constexpr Pair kPairs[2][2] = {
        {kPair<kStrict<TrustingSmart>>, kPair<kTolerant<TrustingSmart>>},
        {kPair<kStrict<ReportedSmart>>, kPair<kTolerant<ReportedSmart>>},
    };
    const Pair &pair = kPairs[options.has(Option::smartState)][options.has(Option::diskIdentity)];
    return options.has(Option::sleepingDisks) ? pair.unlessLeftAlone : pair.all;
}

AskedDisk tavstrg::askedDisk(const SCSIDeviceInfo &device)
{
    AskedDisk disk = {};
    disk.address = {device.host, device.channel, device.id, device.lun};
    if (device.vendor[0] != '\0') {
        copyText(disk.vendor, fieldText(device.vendor));
        copyText(disk.model, fieldText(device.model));
    }
    return disk;
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
    const TraceScope scope("TAVStorageSmartWatch"); // readers of the trace find one of these for each disk
    TRACE(kDetail, "_IN_");
    TRACE(kDetail, "_OUT_ SmartPredict=[%d]", entry.SmartPredict);
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

// SPDX-License-Identifier: Apache-2.0
#include "collect/ide/ide_discovery.h"

#include "collect/base/node_list.h"
#include "collect/base/text_file.h"
#include "collect/ide/ide_readers.h"
#include "devcmd/geometry.h"
#include "runtime/cancel.h"
#include "runtime/field_text.h"
#include "runtime/holders.h"

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstring>
#include <sys/stat.h>

using namespace tavstrg;

namespace {

constexpr char kProcIde[] = "/proc/ide";

using EntryPath = char[sizeof kProcIde + NAME_MAX + 1 + 32];

// What a walk builds.
struct IdeWalk {
    NodeList<IDEControllerInfo> controllers;
    NodeList<IDEDeviceInfo> devices;
};

// Path of a file of an entry: valid until the next call.
class EntryFile {
public:
    explicit EntryFile(const char *entry) : entry_(entry) {}
    const char *operator()(const char *file)
    {
        std::snprintf(path_, sizeof path_, "%s/%s/%s", kProcIde, entry_, file);
        return path_;
    }
    const char *operator()()
    {
        std::snprintf(path_, sizeof path_, "%s/%s", kProcIde, entry_);
        return path_;
    }

private:
    const char *entry_;
    EntryPath path_ = {};
};

bool addController(IdeWalk &walk, const char *entry)
{
    EntryFile path(entry);
    struct stat info = {};
    if (::stat(path(), &info) != 0) {
        return TRACED(false, kFailure, "stat failed. [%s]", path());
    }
    if (!S_ISDIR(info.st_mode)) {
        return true;
    }
    IDEControllerInfo *const controller = walk.controllers.append();
    if (controller == nullptr) {
        return TRACED(false, kFailure, "pIDEControllerInfo alloc failed!!");
    }
    controller->channel = getIDEControllerChannel(path("channel"));
    copyText(controller->name, entry);
    return getIDEControllerModel(path("model"), controller->model) == 0 &&
           getIDEDeviceNumberofController(path(), &controller->deviceCount) == 0 &&
           getIDEControllerMate(path("mate"), controller->mate) == 0;
}

// Geometry, capacity and cache of a disk out of its files: false when one of them fails.
bool readDiskFiles(EntryFile &path, IDEDeviceInfo &device)
{
    return getIDEDeviceGeometry(path("geometry"), &device.cylinders, &device.heads, &device.sectors) == 0 &&
           getIDEDeviceCapacity(path("capacity"), &device.capacity) == 0 &&
           getIDEDeviceCache(path("cache"), &device.cache) == 0;
}

// The kernel's own answer for the device node. Its capacity is in MiB, not in sectors.
bool askKernel(const char *entry, IDEDeviceInfo &device)
{
    char node[sizeof "/dev/" + NAME_MAX];
    std::snprintf(node, sizeof node, "%s/%s", "/dev", entry);
    StrgGeoInfo geo = {};
    if (GetGeoFromKernel(node, &geo) != 0) {
        return false;
    }
    device.cylinders = static_cast<int32_t>(geo.cylinders);
    device.heads = static_cast<int32_t>(geo.heads);
    device.sectors = static_cast<int32_t>(geo.sectors);
    device.capacity = static_cast<int64_t>(geo.capacity);
    device.capacityInMiB = true;
    device.cache = 0;
    return true;
}

bool addDevice(IdeWalk &walk, const char *entry)
{
    IDEDeviceInfo *const device = walk.devices.append();
    if (device == nullptr) {
        return TRACED(false, kFailure, "pIDEDeviceInfo alloc failed!!");
    }
    EntryFile path(entry);
    if (getIDEDeviceControllerName(path(), device->controllerName) != 0 ||
        getIDEDeviceMedia(path("media"), device->media) != 0 || getIDEDeviceModel(path("model"), device->model) != 0 ||
        getIDEDeviceDriver(path("driver"), device->driver, device->driverVersion) != 0) {
        return false;
    }
    const bool disk = std::strcmp(device->media, "disk") == 0;
    if (disk && !readDiskFiles(path, *device) && !askKernel(entry, *device)) {
        return false;
    }
    copyText(device->name, entry);
    return true;
}

bool addIDEEntry(IdeWalk &walk, std::string_view name)
{
    if (name.starts_with("ide")) {
        return addController(walk, name.data());
    }
    return !name.starts_with("hd") || addDevice(walk, name.data());
}

} // namespace

int GetIDEInfoFromProc(IDEGeneralInfo *info)
{
    const TraceScope scope;
    TRACE(kDetail, "_IN_");
    if (info == nullptr) {
        return TRACED(-1, kFailure, "_OUT_ ResultInfo is NULL");
    }
    *info = {};
    const DirListing entries(kProcIde);
    if (entries.count() < 0 && entries.error() == ENOENT) {
        return TRACED(0, kDetail, "_OUT_ [%s] is not exist.", kProcIde);
    }
    if (entries.count() < 0) {
        return TRACED(-1, kFailure, "_OUT_ scandir failed. [%s] errno=[%d]", kProcIde, entries.error());
    }
    IdeWalk walk;
    for (int i = kDotEntries; i < entries.count(); ++i) {
        cancellationPoint();
        if (!addIDEEntry(walk, entries.name(i))) {
            walk.controllers.release();
            walk.devices.release();
            return TRACED(-1, kFailure, "_OUT_ (-1)");
        }
    }
    info->controllerCount = walk.controllers.count();
    info->deviceCount = walk.devices.count();
    info->controllers = walk.controllers.handOver();
    info->devices = walk.devices.handOver();
    return TRACED(0, kDetail, "_OUT_ (0) controllers=[%d] devices=[%d]", info->controllerCount, info->deviceCount);
}

void FreeIDEInfo(IDEGeneralInfo *info)
{
    const TraceScope scope;
    TRACE(kDetail, "_IN_");
    if (info == nullptr) {
        TRACE(kFailure, "_OUT_ ResultInfo is NULL");
        return;
    }
    freeNodes(info->controllers);
    freeNodes(info->devices);
    *info = {};
    TRACE(kDetail, "_OUT_");
}

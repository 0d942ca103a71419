// SPDX-License-Identifier: Apache-2.0
#include "collect/base/attribute.h"
#include "collect/inf/storage_inf.h"
#include "collect/scsi/scsi_devices.h"
#include "collect/scsi/scsi_parse.h"
#include "collect/scsi/scsi_variants.h"
#include "runtime/cancel.h"
#include "runtime/field_text.h"
#include "runtime/holders.h"

#include <cerrno>
#include <climits>
#include <cstring>
#include <sys/stat.h>

using namespace tavstrg;

namespace {

// Deliberate: a longer name is cut, and the cut path is then no entry.
constexpr size_t kMostOfName = 230;

// Entries are symbolic links to directories.
bool isDirectory(const char *entry)
{
    char path[sizeof kSysDevices + 1 + kMostOfName];
    joinText(path, {kSysDevices, "/", entry});
    struct stat info = {};
    return ::stat(path, &info) == 0 && S_ISDIR(info.st_mode);
}

// The files of a device in sysfs.
class DeviceFiles {
public:
    // Reads the vendor.
    explicit DeviceFiles(const char *entry) : entry_(entry)
    {
        setPath("vendor");
        vendor_ = readAttributeText(path_);
    }
    // Whether the entry is a directory. If it has a file, it is; only else it is asked, which is a system call.
    bool isDevice() const
    {
        const bool hasFile = vendor_.result == ReadResult::done && std::strlen(entry_) <= kMostOfName;
        return hasFile || isDirectory(entry_);
    }
    // An attribute that is missing or cannot be read is an empty text: a device can be removed meanwhile.
    void takeVendor(char (&text)[kAttributeSize])
    {
        setPath("vendor");
        int32_t status = 0;
        if (retellAttribute(vendor_, path_, &status, text) != 0) {
            copyText(text, "");
        }
    }
    void read(const char *attribute, char (&text)[kAttributeSize])
    {
        setPath(attribute);
        int32_t status = 0;
        if (GetInfFromFile(&status, path_, text) != 0) {
            copyText(text, "");
        }
    }

private:
    void setPath(const char *attribute) { joinText(path_, {kSysDevices, "/", entry_, "/", attribute}); }

    const char *entry_;
    AttributeText vendor_;
    char path_[sizeof kSysDevices + NAME_MAX + 1 + 16];
};

SCSIDeviceInfo readDevice(DeviceFiles &files, const ScsiAddress &address)
{
    SCSIDeviceInfo device = {};
    device.host = address.host;
    device.channel = address.channel;
    device.id = address.id;
    device.lun = address.lun;
    files.takeVendor(device.vendor);
    files.read("model", device.model);
    files.read("rev", device.scsiRev);
    char type[kAttributeSize] = {};
    files.read("type", type);
    copyText(device.type, scsiTypeText(type));
    return device;
}

// Hosts and targets, which are there too, are not worth sorting.
int isAddress(const dirent *entry)
{
    ScsiAddress address = {};
    return parseScsiAddress(entry->d_name, address) ? 1 : 0;
}

} // namespace

int sys_GetSCSIDeviceInfoFromSys(SCSIDeviceInfo **list, int32_t *count, int32_t *status)
{
    const TraceScope scope;
    TRACE(kDetail, "_IN_");
    if (!beginDeviceList(list, count, status)) {
        return -1;
    }
    const DirListing entries(kSysDevices, isAddress);
    if (entries.count() < 0) {
        const bool absent = entries.error() == ENOENT;
        *status = absent ? kSourceAbsent : kSourceError;
        return absent ? TRACED(-1, kDetail, "_OUT_ [%s] is not exist.", kSysDevices)
                      : TRACED(-1, kFailure, "_OUT_ scandir failed. [%s] errno=[%d]", kSysDevices, entries.error());
    }
    NodeList<SCSIDeviceInfo> devices;
    for (int i = 0; i < entries.count(); ++i) {
        cancellationPoint();
        ScsiAddress address = {};
        static_cast<void>(parseScsiAddress(entries.name(i), address)); // it is one
        DeviceFiles files(entries.name(i));
        if (!files.isDevice()) {
            continue;
        }
        if (!appendDevice(devices, readDevice(files, address))) {
            *status = kSourceNoMemory;
            devices.release();
            return TRACED(-1, kFailure, "_OUT_ ret=[%d]", -1);
        }
    }
    return finishDeviceList(devices, list, count);
}

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
#include <cstdio>
#include <sys/stat.h>

using namespace tavstrg;

namespace {

// Entries are symbolic links to directories. Deliberate: a longer name is cut, and the cut path is then no entry.
bool isDeviceEntry(const char *entry)
{
    char path[25 + 1 + 230 + 1];
    std::snprintf(path, sizeof path, "%.25s/%.230s", kSysDevices, entry);
    struct stat info = {};
    return ::stat(path, &info) == 0 && S_ISDIR(info.st_mode);
}

// An attribute that is missing or cannot be read is an empty text: a device can be removed meanwhile.
void readAttribute(const char *entry, const char *attribute, char (&text)[kAttributeSize])
{
    char path[sizeof kSysDevices + NAME_MAX + 1 + 16];
    std::snprintf(path, sizeof path, "%s/%s/%s", kSysDevices, entry, attribute);
    int32_t status = 0;
    if (GetInfFromFile(&status, path, text) != 0) {
        copyText(text, "");
    }
}

SCSIDeviceInfo readDevice(const char *entry, const ScsiAddress &address)
{
    SCSIDeviceInfo device = {};
    device.host = address.host;
    device.channel = address.channel;
    device.id = address.id;
    device.lun = address.lun;
    readAttribute(entry, "vendor", device.vendor);
    readAttribute(entry, "model", device.model);
    readAttribute(entry, "rev", device.scsiRev);
    char type[kAttributeSize] = {};
    readAttribute(entry, "type", type);
    copyText(device.type, scsiTypeText(type));
    return device;
}

} // namespace

int sys_GetSCSIDeviceInfoFromSys(SCSIDeviceInfo **list, int32_t *count, int32_t *status)
{
    const TraceScope scope;
    TRACE(kDetail, "_IN_");
    if (!beginDeviceList(list, count, status)) {
        return -1;
    }
    const DirListing entries(kSysDevices);
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
        if (!parseScsiAddress(entries.name(i), address) || !isDeviceEntry(entries.name(i))) {
            continue;
        }
        if (!appendDevice(devices, readDevice(entries.name(i), address))) {
            *status = kSourceNoMemory;
            devices.release();
            return TRACED(-1, kFailure, "_OUT_ ret=[%d]", -1);
        }
    }
    return finishDeviceList(devices, list, count);
}

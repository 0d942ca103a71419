// SPDX-License-Identifier: Apache-2.0
#include "collect/base/node_list.h"
#include "collect/scsi/scsi_parse.h"
#include "collect/scsi/scsi_variants.h"
#include "collect/scsi/sys_hosts.h"
#include "runtime/cancel.h"
#include "runtime/field_text.h"
#include "runtime/holders.h"

#include <cerrno>
#include <climits>
#include <cstdio>

using namespace tavstrg;

namespace {

using UsbArray = GrowingArray<USBHostEntry>;

bool appendUsb(UsbArray &adapters, int32_t host, std::string_view name)
{
    USBHostEntry *const adapter = adapters.append();
    if (adapter == nullptr) {
        return TRACED(false, kFailure, "realloc failed,pnm is NULL");
    }
    adapter->host = host;
    copyText(adapter->name, name);
    TRACE(kDetail, "get one usb device,hostno=%d,hostname=%s", adapter->host, adapter->name);
    return true;
}

// An entry of /proc/scsi: the directory of a driver, with an entry for each of its adapters.
bool readProcEntry(const char *entry, UsbArray &adapters)
{
    if (!isUsbDriver(entry)) {
        return true;
    }
    char path[sizeof kProcScsi + NAME_MAX + 2];
    std::snprintf(path, sizeof path, "%s/%s", kProcScsi, entry);
    const DirListing files(path);
    for (int i = 0; i < files.count(); ++i) {
        int32_t host = 0;
        if (parseHostNumber(files.name(i), host) && !appendUsb(adapters, host, entry)) {
            return false;
        }
    }
    return true;
}

// Checks the arguments and sets the results to nothing: false if one is null.
bool beginUsb(USBHostEntry **list, int32_t *count)
{
    if (list == nullptr) {
        return TRACED(false, kFailure, "_OUT_ param(list) Failure!!");
    }
    *list = nullptr;
    if (count == nullptr) {
        return TRACED(false, kFailure, "_OUT_ param(count) Failure!!");
    }
    *count = 0;
    return true;
}

int usbNotListed(const char *directory, int error)
{
    if (error == ENOENT) {
        return TRACED(0, kDetail, "_OUT_ [%s] is not exist.", directory);
    }
    return TRACED(-1, kFailure, "_OUT_ scandir failed. [%s] errno=[%d]", directory, error);
}

int usbWithoutMemory(UsbArray &adapters)
{
    adapters.release();
    return TRACED(-1, kFailure, "_OUT_ ret=[%d]", -1);
}

int finishUsb(UsbArray &adapters, USBHostEntry **list, int32_t *count)
{
    *count = adapters.count();
    *list = adapters.handOver();
    return TRACED(0, kDetail, "_OUT_ USB Ctroller number is [%d]", *count);
}

} // namespace

int sys_GetUSBCtrlFromSys(USBHostEntry **list, int32_t *count)
{
    const TraceScope scope;
    TRACE(kDetail, "_IN_");
    if (!beginUsb(list, count)) {
        return -1;
    }
    SysHosts own;
    SysHosts &hosts = sysHostsOr(own);
    if (const int error = hosts.load(); error != 0) {
        return usbNotListed(kSysHosts, error);
    }
    UsbArray adapters;
    for (int32_t i = 0; i < hosts.count(); ++i) {
        cancellationPoint();
        const SysHost &host = hosts[i];
        if (isUsbDriver(host.driverWord) && !appendUsb(adapters, host.host, host.driverWord)) {
            return usbWithoutMemory(adapters);
        }
    }
    return finishUsb(adapters, list, count);
}

int proc_GetUSBCtrlFromProc(USBHostEntry **list, int32_t *count)
{
    const TraceScope scope;
    TRACE(kDetail, "_IN_");
    if (!beginUsb(list, count)) {
        return -1;
    }
    const DirListing entries(kProcScsi);
    if (entries.count() < 0) {
        return usbNotListed(kProcScsi, entries.error());
    }
    UsbArray adapters;
    for (int i = 0; i < entries.count(); ++i) {
        cancellationPoint();
        if (!readProcEntry(entries.name(i), adapters)) {
            return usbWithoutMemory(adapters);
        }
    }
    return finishUsb(adapters, list, count);
}

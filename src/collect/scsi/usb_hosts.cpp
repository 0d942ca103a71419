// SPDX-License-Identifier: Apache-2.0
#include "collect/base/attribute.h"
#include "collect/base/node_list.h"
#include "collect/base/text_file.h"
#include "collect/base/text_scan.h"
#include "collect/scsi/scsi_parse.h"
#include "collect/scsi/scsi_variants.h"
#include "runtime/cancel.h"
#include "runtime/field_text.h"
#include "runtime/holders.h"

#include <cerrno>
#include <climits>
#include <cstdio>

using namespace tavstrg;

namespace {

using UsbArray = GrowingArray<USBHostEntry>;
using EntryReader = bool (*)(const char *entry, UsbArray &adapters);

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

// An entry of /sys/class/scsi_host. Its driver is the first word of its file.
bool readSysEntry(const char *entry, UsbArray &adapters)
{
    int32_t host = 0;
    if (!parseHostName(entry, host)) {
        return true;
    }
    char path[sizeof kSysHosts + NAME_MAX + 1 + 16];
    std::snprintf(path, sizeof path, "%s/%s/proc_name", kSysHosts, entry);
    char buffer[kMaxAttributeLine];
    std::string_view text;
    std::string_view driver;
    if (readBeginning(path, buffer, text) != ReadResult::done || !TextScan{untilNul(text)}.word(driver)) {
        return true;
    }
    return !isUsbDriver(driver) || appendUsb(adapters, host, driver);
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

int listUsb(const char *directory, EntryReader reader, USBHostEntry **list, int32_t *count)
{
    if (list == nullptr) {
        return TRACED(-1, kFailure, "_OUT_ param(list) Failure!!");
    }
    *list = nullptr;
    if (count == nullptr) {
        return TRACED(-1, kFailure, "_OUT_ param(count) Failure!!");
    }
    *count = 0;
    const DirListing entries(directory);
    if (entries.count() < 0 && entries.error() == ENOENT) {
        return TRACED(0, kDetail, "_OUT_ [%s] is not exist.", directory);
    }
    if (entries.count() < 0) {
        return TRACED(-1, kFailure, "_OUT_ scandir failed. [%s] errno=[%d]", directory, entries.error());
    }
    UsbArray adapters;
    for (int i = 0; i < entries.count(); ++i) {
        cancellationPoint();
        if (!reader(entries.name(i), adapters)) {
            adapters.release();
            return TRACED(-1, kFailure, "_OUT_ ret=[%d]", -1);
        }
    }
    *count = adapters.count();
    *list = adapters.handOver();
    return TRACED(0, kDetail, "_OUT_ USB Ctroller number is [%d]", *count);
}

} // namespace

int sys_GetUSBCtrlFromSys(USBHostEntry **list, int32_t *count)
{
    const TraceScope scope;
    TRACE(kDetail, "_IN_");
    return listUsb(kSysHosts, readSysEntry, list, count);
}

int proc_GetUSBCtrlFromProc(USBHostEntry **list, int32_t *count)
{
    const TraceScope scope;
    TRACE(kDetail, "_IN_");
    return listUsb(kProcScsi, readProcEntry, list, count);
}

// SPDX-License-Identifier: Apache-2.0
#include "collect/scsi/scsi_hosts.h"

#include "collect/base/text_file.h"
#include "collect/scsi/scsi_parse.h"
#include "collect/scsi/scsi_variants.h"
#include "runtime/cancel.h"
#include "runtime/holders.h"

#include <cerrno>
#include <climits>
#include <cstdio>

using namespace tavstrg;

namespace {

using DriverPath = char[sizeof kProcScsi + NAME_MAX + 2];

} // namespace

int proc_GetSCSIControllerNumFromType(const char *driver, HostArray &hosts)
{
    const TraceScope scope;
    TRACE(kDetail, "_IN_");
    if (driver == nullptr) {
        return TRACED(kSourceError, kFailure, "_OUT_ param(driver) Failure!!");
    }
    DriverPath path;
    std::snprintf(path, sizeof path, "%s/%s", kProcScsi, driver);
    const DirListing entries(path);
    if (entries.count() < 0) {
        // A driver that has been unloaded since has no adapters.
        const int result = entries.error() == ENOENT ? 0 : kSourceError;
        return TRACED(result, result < 0 ? kFailure : kDetail, "_OUT_ scandir failed. [%s]", path);
    }
    int found = 0;
    for (int i = 0; i < entries.count(); ++i) {
        int32_t host = 0;
        if (!parseHostNumber(entries.name(i), host)) {
            continue;
        }
        if (!appendHost(hosts, host, driver)) {
            return TRACED(kSourceNoMemory, kFailure, "_OUT_ ret=[%d]", kSourceNoMemory);
        }
        ++found;
    }
    return TRACED(found, kDetail, "_OUT_ ret=[%d]", found);
}

int32_t tavstrg::procReadHosts(HostArray &hosts)
{
    const DirListing entries(kProcScsi);
    if (entries.count() < 0) {
        TRACE(kDetail, "scandir failed. [%s] errno=[%d]", kProcScsi, entries.error());
        return entries.error() == ENOENT ? kSourceAbsent : kSourceError;
    }
    ManagedDrivers managed;
    if (!managed.load()) {
        return kSourceError;
    }
    for (int i = entries.count() - 1; i >= kDotEntries; --i) {
        cancellationPoint();
        const char *const driver = entries.name(i);
        if (isNeverHostAdapter(driver) || !managed.has(driver) || !isDirectory(kProcScsi, driver)) {
            continue;
        }
        const int found = proc_GetSCSIControllerNumFromType(driver, hosts);
        if (found < 0) {
            return found;
        }
    }
    return 0;
}

int proc_GetSCSIControllerNumber()
{
    const TraceScope scope;
    TRACE(kDetail, "_IN_");
    return countHosts(procReadHosts);
}

int proc_read_scsi_ctrl(SCSIHostEntry **list, int32_t *count)
{
    const TraceScope scope;
    TRACE(kDetail, "_IN_");
    return listHosts(procReadHosts, list, count);
}

int proc_GetSCSIControllerTypeDetailInfo(SCSIControllerTypeDetail **list, int32_t *typeCount, int32_t *controllerCount,
                                         int32_t *status)
{
    const TraceScope scope;
    TRACE(kDetail, "_IN_");
    return listHostTypes(procReadHosts, {list, typeCount, controllerCount, status});
}

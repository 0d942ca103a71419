// SPDX-License-Identifier: Apache-2.0
#include "collect/scsi/scsi_hosts.h"

#include "collect/base/attribute.h"
#include "collect/scsi/scsi_parse.h"
#include "collect/scsi/scsi_variants.h"
#include "runtime/cancel.h"
#include "runtime/holders.h"

#include <cerrno>
#include <climits>
#include <cstdio>

using namespace tavstrg;

namespace {

// The driver's name of a host adapter, empty where it cannot be read.
void readDriver(const char *entry, char (&driver)[kAttributeSize])
{
    char path[sizeof kSysHosts + NAME_MAX + 1 + 16];
    std::snprintf(path, sizeof path, "%s/%s/proc_name", kSysHosts, entry);
    int32_t status = 0;
    if (GetInfFromFile(&status, path, driver) != 0) {
        driver[0] = '\0';
    }
}

} // namespace

int32_t tavstrg::sysReadHosts(HostArray &hosts)
{
    const DirListing entries(kSysHosts);
    if (entries.count() < 0) {
        TRACE(kDetail, "scandir failed. [%s] errno=[%d]", kSysHosts, entries.error());
        return entries.error() == ENOENT ? kSourceAbsent : kSourceError;
    }
    ManagedDrivers managed;
    if (!managed.load()) {
        return kSourceError;
    }
    for (int i = 0; i < entries.count(); ++i) {
        cancellationPoint();
        int32_t host = 0;
        if (!parseHostName(entries.name(i), host)) {
            continue;
        }
        char driver[kAttributeSize] = {};
        readDriver(entries.name(i), driver);
        if (isNeverHostAdapter(driver) || !managed.has(driver)) {
            continue;
        }
        TRACE(kDetail, "pNAME->id=[%d] pNAME->name=[%s]", host, driver);
        if (!appendHost(hosts, host, driver)) {
            return kSourceNoMemory;
        }
    }
    return 0;
}

int sys_GetSCSIControllerNumber()
{
    const TraceScope scope;
    TRACE(kDetail, "_IN_");
    return countHosts(sysReadHosts);
}

int sys_read_scsi_ctrl(SCSIHostEntry **list, int32_t *count)
{
    const TraceScope scope;
    TRACE(kDetail, "_IN_");
    return listHosts(sysReadHosts, list, count);
}

int sys_GetSCSIControllerTypeDetailInfo(SCSIControllerTypeDetail **list, int32_t *typeCount, int32_t *controllerCount,
                                        int32_t *status)
{
    const TraceScope scope;
    TRACE(kDetail, "_IN_");
    return listHostTypes(sysReadHosts, {list, typeCount, controllerCount, status});
}

// SPDX-License-Identifier: Apache-2.0
#include "collect/scsi/scsi_hosts.h"

#include "collect/base/attribute.h"
#include "collect/scsi/scsi_parse.h"
#include "collect/scsi/scsi_variants.h"
#include "collect/scsi/sys_hosts.h"
#include "runtime/cancel.h"
#include "runtime/field_text.h"

#include <cerrno>
#include <climits>

using namespace tavstrg;

namespace {

// The driver's name of a host adapter, empty if it cannot be read. The name was read before; the trace is that of each
// reading.
void reportDriver(const SysHosts &hosts, int32_t i, char (&driver)[kAttributeSize])
{
    char path[sizeof kSysHosts + NAME_MAX + 1 + 16];
    joinText(path, {kSysHosts, "/", hosts.name(i), "/proc_name"});
    int32_t status = 0;
    if (retellAttribute(hosts[i].driver, path, &status, driver) != 0) {
        driver[0] = '\0';
    }
}

} // namespace

int32_t tavstrg::sysReadHosts(HostArray &hosts)
{
    SysHosts own;
    SysHosts &shown = sysHostsOr(own);
    const int error = shown.load();
    if (error != 0) {
        TRACE(kDetail, "scandir failed. [%s] errno=[%d]", kSysHosts, error);
        return error == ENOENT ? kSourceAbsent : kSourceError;
    }
    ManagedDrivers managed;
    if (!managed.load()) {
        return kSourceError;
    }
    for (int32_t i = 0; i < shown.count(); ++i) {
        cancellationPoint();
        if (!shown[i].isHost) {
            continue;
        }
        char driver[kAttributeSize] = {};
        reportDriver(shown, i, driver);
        if (isNeverHostAdapter(driver) || !managed.has(driver)) {
            continue;
        }
        TRACE(kDetail, "pNAME->id=[%d] pNAME->name=[%s]", shown[i].host, driver);
        if (!appendHost(hosts, shown[i].host, driver)) {
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

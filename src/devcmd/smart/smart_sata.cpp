// SPDX-License-Identifier: Apache-2.0
#include "devcmd/open_device.h"
#include "devcmd/smart/identify.h"
#include "devcmd/smart/smart_routines.h"
#include "devcmd/transport/sat_command.h"
#include "devcmd/transport/transport.h"
#include "runtime/holders.h"
#include "runtime/trace.h"

#include <fcntl.h>

using namespace tavstrg;

namespace {

// The commands used here transfer no data.
int sendSata(int fd, int command)
{
    return sat_ata_cmd_interface(fd, command, 0, nullptr);
}

void readStatus(HardDiskEntry &disk, int fd)
{
    switch (sendSata(fd, SATCMD_SMART_STATUS_CHECK)) {
    case 0:
        disk.SmartPredict = 0;
        TRACE(kDetail, "sata SMART status is OK!");
        break;
    case 1:
        disk.SmartPredict = 1;
        TRACE(kDetail, "sata SMART status is WARNING!");
        break;
    default:
        disk.SmartPredict = -1;
        disk.SmartSupport = 1;
        TRACE(kFailure, "ERROR: get sata SMART status failed!");
        break;
    }
}

} // namespace

void enable_sata_smart(HardDiskEntry *hdt)
{
    const TraceScope scope;
    TRACE(kDetail, "_IN_");
    if (hdt == nullptr) {
        TRACE(kFailure, "_OUT_ hdt is NULL");
        return;
    }
    const FileDesc device(openDevice(hdt->DevPath, O_RDWR));
    if (!device) {
        hdt->SmartSupport = 1;
        TRACE(kFailure, "_OUT_ open device : [%s] failed.", hdt->DevPath);
        return;
    }
    if (identifyAllowsSmart(device.get(), *hdt, IdentifyRetry::kZeroed)) {
        if (sendSata(device.get(), SATCMD_SMART_ENABLE) != 0) {
            hdt->SmartSupport = 1;
            TRACE(kFailure, "SATA SMART enable failed!");
        } else {
            // Deliberate: support stays as IDENTIFY reported it, even if unknown.
            TRACE(kDetail, "SATA SMART enable successed!");
        }
    }
    TRACE(kDetail, "_OUT_");
}

void disable_sata_smart(HardDiskEntry *hdt)
{
    const TraceScope scope;
    withOpenDisk(
        hdt,
        [](const HardDiskEntry &, int fd) {
            if (sendSata(fd, SATCMD_SMART_DISABLE) != 0) {
                TRACE(kFailure, "SATA SMART disable failed!");
            } else {
                TRACE(kDetail, "SATA SMART disable successed!");
            }
        },
        [](const HardDiskEntry &disk, int) { TRACE(kFailure, "open device : %s failed.", disk.DevPath); });
}

void get_sata_smart(HardDiskEntry *hdt)
{
    const TraceScope scope;
    withOpenDisk(
        hdt, [](HardDiskEntry &disk, int fd) { readStatus(disk, fd); },
        [](HardDiskEntry &disk, int) {
            disk.SmartSupport = 1;
            TRACE(kFailure, "open device : %s failed.", disk.DevPath);
        });
}

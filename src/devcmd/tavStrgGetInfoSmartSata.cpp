#include "devcmd/tavStrgGetInfoDevice.h"
#include "devcmd/tavStrgGetInfoSmartIdentify.h"
#include "devcmd/tavStrgGetInfoSmartKinds.h"
#include "devcmd/tavStrgGetInfoTransport.h"
#include "provider/runtime/tavCommonHolders.h"
#include "provider/runtime/tavCommonTrace.h"

#include <fcntl.h>

namespace {

// The commands used here transfer no data.
int sendSata(int fd, int command)
{
    return sat_ata_cmd_interface(fd, command, 0, nullptr);
}

} // namespace

void enable_sata_smart(HardDiskEntry *hdt)
{
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
    if (identifyAllowsSmart(__func__, device.get(), *hdt, IdentifyRetry::kZeroed)) {
        if (sendSata(device.get(), SATCMD_SMART_ENABLE) != 0) {
            hdt->SmartSupport = 1;
            TRACE(kFailure, "SATA SMART enable failed!");
        } else {
            // Deliberate: support stays as IDENTIFY told it, also where that is unknown.
            TRACE(kDetail, "SATA SMART enable successed!");
        }
    }
    TRACE(kDetail, "_OUT_");
}

void disable_sata_smart(HardDiskEntry *hdt)
{
    TRACE(kDetail, "_IN_");
    if (hdt == nullptr) {
        TRACE(kFailure, "_OUT_ hdt is NULL");
        return;
    }
    const FileDesc device(openDevice(hdt->DevPath, O_RDWR));
    if (!device) {
        TRACE(kFailure, "open device : %s failed.", hdt->DevPath);
    } else if (sendSata(device.get(), SATCMD_SMART_DISABLE) != 0) {
        TRACE(kFailure, "SATA SMART disable failed!");
    } else {
        TRACE(kDetail, "SATA SMART disable successed!");
    }
    TRACE(kDetail, "_OUT_");
}

void get_sata_smart(HardDiskEntry *hdt)
{
    TRACE(kDetail, "_IN_");
    if (hdt == nullptr) {
        TRACE(kFailure, "_OUT_ hdt is NULL");
        return;
    }
    const FileDesc device(openDevice(hdt->DevPath, O_RDWR));
    if (!device) {
        hdt->SmartSupport = 1;
        TRACE(kFailure, "open device : %s failed.", hdt->DevPath);
        TRACE(kDetail, "_OUT_");
        return;
    }
    switch (sendSata(device.get(), SATCMD_SMART_STATUS_CHECK)) {
    case 0:
        hdt->SmartPredict = 0;
        TRACE(kDetail, "sata SMART status is OK!");
        break;
    case 1:
        hdt->SmartPredict = 1;
        TRACE(kDetail, "sata SMART status is WARNING!");
        break;
    default:
        hdt->SmartPredict = -1;
        hdt->SmartSupport = 1;
        TRACE(kFailure, "ERROR: get sata SMART status failed!");
        break;
    }
    TRACE(kDetail, "_OUT_");
}

// SPDX-License-Identifier: Apache-2.0
#include "collect/sequence.h"

#include "collect/controllers/controller_build.h"
#include "collect/devices/device_build.h"
#include "collect/discovery_lists.h"
#include "runtime/trace.h"

int DllMain()
{
    const TraceScope scope;
    TRACE(kDetail, "_IN_");
    if (GetSCSIAndIDEInfoListFromProc() < 0) {
        return TRACED(-1, kDetail, "_OUT_ GetSCSIAndIDEInfoListFromProc() failed, leafstrg initialize failed.");
    }
    if (InitController() < 0) {
        FreeSCSIAndIDEInfoListFromProc();
        return TRACED(-1, kDetail, "_OUT_ InitController() failed, leafstrg initialize failed");
    }
    if (InitDevice() < 0) {
        FreeSCSIAndIDEInfoListFromProc();
        FreeControllerTable();
        return TRACED(-1, kDetail, "_OUT_ InitDevice() failed, leafstrg initialize failed");
    }
    return TRACED(0, kDetail, "_OUT_ ret=[%d]", 0);
}

void freeCollection()
{
    FreeDeviceTable();
    FreeSCSIAndIDEInfoListFromProc();
    FreeControllerTable();
}

#include "collect/tavStrgGetInfoCollect.h"

#include "collect/tavStrgGetInfoCollectLists.h"
#include "collect/tavStrgGetInfoController.h"
#include "collect/tavStrgGetInfoDeviceBuild.h"
#include "provider/runtime/tavCommonTrace.h"

int DllMain()
{
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

#include "devcmd/tavStrgGetInfoSmart.h"

#include "provider/runtime/tavCommonTrace.h"

int32_t g_SmartMode = 0;

void TAVStorageSmartWatch(HardDiskEntry *)
{
    TRACE(kDetail, "_IN_");
    TRACE(kDetail, "_OUT_");
}

#include "devcmd/tavStrgGetInfoSmart.h"

#include "provider/runtime/tavCommonTrace.h"

void TAVStorageSmartWatch(HardDiskEntry *)
{
    TRACE(kDetail, "_IN_");
    TRACE(kDetail, "_OUT_");
}

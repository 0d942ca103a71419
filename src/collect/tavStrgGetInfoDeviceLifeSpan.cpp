#include "collect/tavStrgGetInfoDeviceLifeSpan.h"

// The endurance table is not read yet: no drive is in it, and none gets an entry.
void GetLifeSpanInfo(const char *devName, const SCSIDeviceEntry *)
{
    TRACE(kDetail, "_IN_");
    if (devName == nullptr) {
        TRACE(kFailure, "_OUT_ param(devName) Failure!!");
        return;
    }
    TRACE(kDetail, "_OUT_");
}

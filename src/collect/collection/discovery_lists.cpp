// SPDX-License-Identifier: Apache-2.0
#include "collect/collection/collection.h"

#include "runtime/trace.h"

using namespace tavstrg;

namespace {

void resetLists(Collection &all)
{
    all.g_SCSIDeviceInfo = nullptr;
    all.g_SCSIDeviceTotalNumber = 0;
    all.g_SCSIControllerTypeDetail = nullptr;
    all.g_SCSIControllerTypeTotalNumber = 0;
    all.g_SCSIControllerTotalNumber = 0;
    all.g_IDEGeneralInfo = {};
}

// A builder that found nothing to read reports so beside its negative result; that is no failure.
bool builderFailed(int result, int32_t status)
{
    return result < 0 && status != kSourceAbsent;
}

} // namespace

int GetSCSIAndIDEInfoListFromProc()
{
    const TraceScope scope;
    TRACE(kDetail, "_IN_");
    Collection &all = collection();
    resetLists(all);

    int32_t status = 0;
    int result = GetSCSIDeviceInfoFromProc(&all.g_SCSIDeviceInfo, &all.g_SCSIDeviceTotalNumber, &status);
    if (builderFailed(result, status)) {
        return TRACED(-1, kDetail, "_OUT_ GetSCSIDeviceInfoFromProc() Failure!! status=[%d]", status);
    }

    status = 0;
    result = GetSCSIControllerTypeDetailInfo(&all.g_SCSIControllerTypeDetail, &all.g_SCSIControllerTypeTotalNumber,
                                             &all.g_SCSIControllerTotalNumber, &status);
    if (builderFailed(result, status)) {
        FreeSCSIDeviceInfo(&all.g_SCSIDeviceInfo);
        return TRACED(-1, kDetail, "_OUT_ GetSCSIControllerTypeDetailInfo() Failure!! status=[%d]", status);
    }

    if (GetIDEInfoFromProc(&all.g_IDEGeneralInfo) < 0) {
        FreeSCSIControllerTypeDetailInfo(&all.g_SCSIControllerTypeDetail);
        FreeSCSIDeviceInfo(&all.g_SCSIDeviceInfo);
        return TRACED(-1, kDetail, "_OUT_ GetIDEInfoFromProc() Failure!!");
    }
    return TRACED(0, kDetail, "_OUT_ ret=[%d]", 0);
}

void FreeSCSIAndIDEInfoListFromProc()
{
    const TraceScope scope;
    TRACE(kDetail, "_IN_");
    Collection &all = collection();
    FreeSCSIDeviceInfo(&all.g_SCSIDeviceInfo);
    FreeSCSIControllerTypeDetailInfo(&all.g_SCSIControllerTypeDetail);
    FreeIDEInfo(&all.g_IDEGeneralInfo);
    resetLists(all);
    TRACE(kDetail, "_OUT_");
}

// SPDX-License-Identifier: Apache-2.0
#include "collect/collection/discovery_lists.h"

#include "runtime/trace.h"

using namespace tavstrg;

SCSIDeviceInfo *tavstrg::g_SCSIDeviceInfo = nullptr;
int32_t tavstrg::g_SCSIDeviceTotalNumber = 0;
SCSIControllerTypeDetail *tavstrg::g_SCSIControllerTypeDetail = nullptr;
int32_t g_SCSIControllerTypeTotalNumber = 0;
int32_t g_SCSIControllerTotalNumber = 0;
IDEGeneralInfo g_IDEGeneralInfo = {};

namespace {

void resetLists()
{
    g_SCSIDeviceInfo = nullptr;
    g_SCSIDeviceTotalNumber = 0;
    g_SCSIControllerTypeDetail = nullptr;
    g_SCSIControllerTypeTotalNumber = 0;
    g_SCSIControllerTotalNumber = 0;
    g_IDEGeneralInfo = {};
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
    resetLists();

    int32_t status = 0;
    int result = GetSCSIDeviceInfoFromProc(&g_SCSIDeviceInfo, &g_SCSIDeviceTotalNumber, &status);
    if (builderFailed(result, status)) {
        return TRACED(-1, kDetail, "_OUT_ GetSCSIDeviceInfoFromProc() Failure!! status=[%d]", status);
    }

    status = 0;
    result = GetSCSIControllerTypeDetailInfo(&g_SCSIControllerTypeDetail, &g_SCSIControllerTypeTotalNumber,
                                             &g_SCSIControllerTotalNumber, &status);
    if (builderFailed(result, status)) {
        FreeSCSIDeviceInfo(&g_SCSIDeviceInfo);
        return TRACED(-1, kDetail, "_OUT_ GetSCSIControllerTypeDetailInfo() Failure!! status=[%d]", status);
    }

    if (GetIDEInfoFromProc(&g_IDEGeneralInfo) < 0) {
        FreeSCSIControllerTypeDetailInfo(&g_SCSIControllerTypeDetail);
        FreeSCSIDeviceInfo(&g_SCSIDeviceInfo);
        return TRACED(-1, kDetail, "_OUT_ GetIDEInfoFromProc() Failure!!");
    }
    return TRACED(0, kDetail, "_OUT_ ret=[%d]", 0);
}

void FreeSCSIAndIDEInfoListFromProc()
{
    const TraceScope scope;
    TRACE(kDetail, "_IN_");
    FreeSCSIDeviceInfo(&g_SCSIDeviceInfo);
    FreeSCSIControllerTypeDetailInfo(&g_SCSIControllerTypeDetail);
    FreeIDEInfo(&g_IDEGeneralInfo);
    resetLists();
    TRACE(kDetail, "_OUT_");
}

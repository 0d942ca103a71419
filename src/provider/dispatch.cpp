// SPDX-License-Identifier: Apache-2.0
#include "provider/dispatch.h"

#include "classes/disk_properties.h"
#include "runtime/options.h"
#include "runtime/request.h"

#include <cstring>

using namespace tavstrg;

namespace {

CMPIStatus invokeStart(const CInfo *cInfo, const CMPIResult *rslt, const CMPIObjectPath *, const char *,
                       const CMPIArgs *, CMPIArgs *)
{
    return TAV_STRGThreadStartInvokeMethod(cInfo, rslt);
}

CMPIStatus invokeStop(const CInfo *cInfo, const CMPIResult *rslt, const CMPIObjectPath *, const char *,
                      const CMPIArgs *, CMPIArgs *)
{
    return TAV_STRGThreadStopInvokeMethod(cInfo, rslt);
}

constexpr MethodCall kThreadMethods[] = {
    {"StartMonitoringThread", invokeStart, "TAV_STRGThreadStartInvokeMethod"},
    {"StopMonitoringThread", invokeStop, "TAV_STRGThreadStopInvokeMethod"},
};
constexpr MethodCall kConfigMethods[] = {
    {"SetMonitorCycle", TAV_STRGConfigInvokeMethod, "TAV_STRGConfigInvokeMethod"},
    {"SetHardDiskSmartMode", TAV_STRGConfigInvokeMethod, "TAV_STRGConfigInvokeMethod"},
};

// A macro, because only a macro gets a function together with its name.
#define CALL(function)                                                                                                 \
    InstanceCall                                                                                                       \
    {                                                                                                                  \
        function, #function                                                                                            \
    }

constexpr InstanceCall kThreadGet = CALL(TAV_STRGThreadGetInstance);
constexpr InstanceCall kConfigGet = CALL(TAV_STRGConfigGetInstance);
constexpr InstanceCall kTotalNumGet = CALL(TAV_STRGTotalNumGetInstance);

constexpr DispatchRow indexed(const char *className, InstanceCall get, InstanceCall enumerate)
{
    return {className, get, enumerate, {}, {}, false, false};
}

constexpr DispatchRow kRows[] = {
    // Deliberate: the thread's class is always answered, so that a client can see and start the thread.
    {"TAV_StorageThread", kThreadGet, kThreadGet, kThreadMethods, {}, true, true},
    {"TAV_StorageConfig", kConfigGet, kConfigGet, kConfigMethods, {}, false, false},
    {"TAV_StorageTotalNumber", kTotalNumGet, kTotalNumGet, {}, {}, false, false},
    indexed("TAV_StorageController", CALL(TAV_STRGCtrlGetInstance), CALL(TAV_STRGCtrlEnumInstances)),
    indexed("TAV_StorageSCSIDevice", CALL(TAV_STRGScsiGetInstance), CALL(TAV_STRGScsiEnumInstances)),
    indexed("TAV_StorageIDEDevice", CALL(TAV_STRGIdeGetInstance), CALL(TAV_STRGIdeEnumInstances)),
    indexed("TAV_StorageHardDisk", CALL(TAV_STRGHddGetInstance), CALL(TAV_STRGHddEnumInstances)),
    indexed("TAV_StorageCDROM", CALL(TAV_STRGCdromGetInstance), CALL(TAV_STRGCdromEnumInstances)),
    indexed("TAV_StorageTape", CALL(TAV_STRGTapeGetInstance), CALL(TAV_STRGTapeEnumInstances)),
    indexed("TAV_StorageOpticalMemory", CALL(TAV_STRGOptMemGetInstance), CALL(TAV_STRGOptMemEnumInstances)),
    indexed("TAV_StorageMisc", CALL(TAV_STRGMiscGetInstance), CALL(TAV_STRGMiscEnumInstances)),
    // Deliberate: its enumeration is traced under another name.
    indexed("TAV_StorageLifeSpan", CALL(TAV_STRGLifeSpanGetInstance),
            InstanceCall{TAV_STRGLifeSpanEnumInstances, "TAV_StorageLifeSpanEnumInstances"}),
};

// The class that does not exist without the option every-disk.
constexpr DispatchRow kDiskRow = {kDiskClass, CALL(TAV_STRGDiskGetInstance),       CALL(TAV_STRGDiskEnumInstances),
                                  {},         CALL(TAV_STRGDiskEnumInstanceNames), false,
                                  false};

#undef CALL

// Asks the file, not what a collection took from it: the class needs no collection.
bool isEveryDiskPublished()
{
    return isInOptionsFile(Option::everyDisk);
}

} // namespace

const DispatchRow *tavstrg::findClass(const char *className)
{
    for (const DispatchRow &row : kRows) {
        if (std::strcmp(row.className, className) == 0) {
            return &row;
        }
    }
    return std::strcmp(kDiskRow.className, className) == 0 && isEveryDiskPublished() ? &kDiskRow : nullptr;
}

const DispatchRow *tavstrg::findClassWithoutStore(const CMPIObjectPath *cop)
{
    // The line first: without it the broker is asked for nothing more than before, and no request opens a file.
    if (!mayBeOn(Option::everyDisk) || !isEveryDiskPublished()) {
        return nullptr;
    }
    return isPathOf(cop, kDiskRow.className) ? &kDiskRow : nullptr;
}

const DispatchRow *tavstrg::findClassWithNames(const CMPIObjectPath *cop)
{
    return isPathOf(cop, kDiskRow.className) ? findClass(kDiskRow.className) : nullptr;
}

const MethodCall *tavstrg::findMethod(const DispatchRow &row, const char *method)
{
    for (const MethodCall &call : row.methods) {
        if (std::strcmp(call.method, method) == 0) {
            return &call;
        }
    }
    return nullptr;
}

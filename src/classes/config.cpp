// SPDX-License-Identifier: Apache-2.0
#include "classes/instance.h"
#include "classes/singleton.h"
#include "lifecycle/access.h"
#include "runtime/cmpi_data.h"
#include "runtime/request.h"
#include "runtime/trace.h"
#include "store/arrays.h"

#include <cstdio>
#include <cstring>
#include <mutex>

using namespace tavstrg;

namespace {

constexpr SingletonClass kConfigClass = {
    .classId = TAV_CID_STRG_CONF,
    .classIdName = "TAV_CID_STRG_CONF",
    .noDataText = "strgGetInstance() NoData Failure!!",
    .recordParam = "datconf",
    .setPropInstName = "TAV_STRGConfigSetPropInst",
    .setPropInst = buildFrom<StrgConfRec, TAV_STRGConfigSetPropInst>,
};

// One method that changes one field of the record.
struct ConfigMethod {
    const char *name;
    const char *argument; // the field has the same name
    const char *tracedAs; // the argument in traces and messages
    const char *member;   // of the value in traces
    int32_t lowest;       // values accepted, both inclusive. Deliberate: constants, whatever the record's range says
    int32_t highest;
};
constexpr ConfigMethod kMethods[] = {
    {"SetMonitorCycle", "MonitorCycle", "MonitorCycle", "uint16", 10, 3600},
    {"SetHardDiskSmartMode", "HardDiskSmartMode", "HDDSmartMode", "sint16", 0, 1},
};

const ConfigMethod *findMethod(const char *name)
{
    for (const ConfigMethod &method : kMethods) {
        if (std::strcmp(method.name, name) == 0) {
            return &method;
        }
    }
    return nullptr;
}

CMPIStatus failedOf(const CInfo *cInfo, const char *what, const ConfigMethod &method)
{
    char message[64];
    std::snprintf(message, sizeof message, "%s(%s) FAILED", what, method.tracedAs);
    return statusWithChars(cInfo, CMPI_RC_ERR_FAILED, message);
}

// Puts the value into the record, where it stands now, and gives what was there; false when there is no record any
// more.
bool exchangeField(const ConfigMethod &method, uint16_t value, int &previous)
{
    const std::lock_guard held(g_recordsLock);
    const DatInfo &dat = instSt[TAV_CID_STRG_CONF];
    if (recordsHeld(dat) == 0 || !strgIsBuilt()) {
        return false;
    }
    for (const FieldDesc &field : kClasses[TAV_CID_STRG_CONF].fields) {
        if (std::strcmp(field.name, method.argument) == 0) {
            previous = static_cast<int>(fieldNumber(field, dat.datAdr));
            std::memcpy(static_cast<char *>(dat.datAdr) + field.offset, &value, sizeof value);
        }
    }
    shmSt[TAV_CID_STRG_CONF].storeNewer = true; // a request that reads the class now must not fetch the old value back
    return true;
}

// Takes the argument into the record.
CMPIStatus takeArgument(const ConfigMethod &method, const CInfo *cInfo, const CMPIArgs *in)
{
    TRACE(kDetail, "getArgToInt(%s)", method.tracedAs);
    const int32_t value = getArgToInt(in, method.argument);
    if (value == -1) {
        TRACE(kFailure, "getArgToInt(%s) Failure!!", method.tracedAs);
        return failedOf(cInfo, "getArgToInt", method);
    }
    if (value < method.lowest || value > method.highest) {
        TRACE(kFailure, "%s Failure!! value=[%d]", method.tracedAs, value);
        return failedOf(cInfo, "SetValue", method);
    }
    int previous = 0;
    if (!exchangeField(method, static_cast<uint16_t>(value), previous)) {
        TRACE(kFailure, "strgGetInstance() Failure!!");
        return failedCall(cInfo, "strgGetInstance"); // gone since the store handed it out: most likely a stop
    }
    TRACE(kDetail, "datconf->%s=[%d] dt.value.%s=[%d]", method.argument, previous, method.member, value);
    TRACE(kDetail, "datconf->%s=[%d]", method.argument, value);
    return {CMPI_RC_OK, nullptr};
}

CMPIStatus invoke(const CInfo *cInfo, const char *methodName, const CMPIArgs *in)
{
    DatInfo dat = {};
    const CMPIStatus read = readSingleton(kConfigClass, cInfo, dat);
    if (read.rc != CMPI_RC_OK) {
        return read;
    }
    if (const ConfigMethod *const method = findMethod(methodName)) {
        const CMPIStatus taken = takeArgument(*method, cInfo, in);
        if (taken.rc != CMPI_RC_OK) {
            return taken;
        }
    }
    TRACE(kDetail, "strgSetInstance()");
    if (strgSetInstance(cInfo) != 0) {
        // Deliberate: the change stays in this process's store, though neither segment nor file has it.
        TRACE(kFailure, "strgSetInstance() Failure!!");
        return statusWithChars(cInfo, CMPI_RC_ERR_FAILED, "Storage-Update FAILED");
    }
    return {CMPI_RC_OK, nullptr};
}

} // namespace

CMPIStatus TAV_STRGConfigGetInstance(const CInfo *cInfo, const CMPIResult *rslt, const CMPIObjectPath *cop,
                                     const char **properties)
{
    const TraceScope scope;
    return singletonGetInstance(kConfigClass, cInfo, rslt, cop, properties);
}

CMPIInstance *TAV_STRGConfigSetPropInst(const CInfo *cInfo, const CMPIObjectPath *cop, const char **properties,
                                        const StrgConfRec *record)
{
    const TraceScope scope;
    return singletonSetPropInst(kConfigClass, cInfo, cop, properties, record);
}

CMPIStatus TAV_STRGConfigInvokeMethod(const CInfo *cInfo, const CMPIResult *, const CMPIObjectPath *,
                                      const char *methodName, const CMPIArgs *in, CMPIArgs *)
{
    const TraceScope scope;
    TRACE(kDetail, "_IN_");
    CMPIStatus status{CMPI_RC_ERR_FAILED, nullptr};
    if (cInfo == nullptr) {
        TRACE(kFailure, "param(cInfo) Failure!!");
    } else {
        status = invoke(cInfo, methodName, in);
    }
    return TRACED(status, kDetail, "_OUT_");
}

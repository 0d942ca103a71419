// SPDX-License-Identifier: Apache-2.0
#include "classes/instance.h"
#include "runtime/request.h"
#include "store/arrays.h"

#include <cstring>
#include <mutex>
#include <optional>

using namespace tavstrg;

namespace {

constexpr RecordClass kConfigClass = {
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

Refusal refuse(const char *what, const ConfigMethod &method)
{
    return refusal(CMPI_RC_ERR_FAILED, "%s(%s) FAILED", what, method.tracedAs);
}

// Writes the value into the store's record and returns the value that was there; nothing when the record is gone.
std::optional<int> exchangeField(const ConfigMethod &method, uint16_t value)
{
    const std::lock_guard held(g_recordsLock);
    const DatInfo &dat = instSt[TAV_CID_STRG_CONF];
    if (recordsHeld(dat) == 0 || !strgIsBuilt()) {
        return std::nullopt;
    }
    int previous = 0;
    for (const FieldDesc &field : kClasses[TAV_CID_STRG_CONF].fields) {
        if (std::strcmp(field.name, method.argument) == 0) {
            previous = static_cast<int>(fieldNumber(field, dat.datAdr));
            std::memcpy(static_cast<char *>(dat.datAdr) + field.offset, &value, sizeof value);
        }
    }
    shmSt[TAV_CID_STRG_CONF].storeNewer = true; // a request that reads the class now must not read the old value back
    return previous;
}

// Takes the argument into the record.
Outcome takeArgument(const ConfigMethod &method, const CMPIArgs *in)
{
    TRACE(kDetail, "getArgToInt(%s)", method.tracedAs);
    const int32_t value = getArgToInt(in, method.argument);
    if (value == -1) {
        TRACE(kFailure, "getArgToInt(%s) Failure!!", method.tracedAs);
        return refuse("getArgToInt", method);
    }
    if (value < method.lowest || value > method.highest) {
        TRACE(kFailure, "%s Failure!! value=[%d]", method.tracedAs, value);
        return refuse("SetValue", method);
    }
    const std::optional<int> previous = exchangeField(method, static_cast<uint16_t>(value));
    if (!previous) {
        return unreadStore(); // gone since the class was refreshed: most likely a stop
    }
    TRACE(kDetail, "datconf->%s=[%d] dt.value.%s=[%d]", method.argument, *previous, method.member, value);
    TRACE(kDetail, "datconf->%s=[%d]", method.argument, value);
    return {};
}

Outcome invoke(const CInfo *cInfo, const char *methodName, const CMPIArgs *in)
{
    if (const Outcome refused = refreshClass(kConfigClass, kConfigClass.classIdName, cInfo)) {
        return refused;
    }
    if (const ConfigMethod *const method = findMethod(methodName)) {
        if (const Outcome refused = takeArgument(*method, in)) {
            return refused;
        }
    }
    TRACE(kDetail, "strgSetInstance()");
    if (strgSetInstance(cInfo) != 0) {
        // Deliberate: the change stays in this process's store, though neither segment nor file has it.
        TRACE(kFailure, "strgSetInstance() Failure!!");
        return refusal(CMPI_RC_ERR_FAILED, "Storage-Update FAILED");
    }
    return {};
}

} // namespace

CMPIStatus TAV_STRGConfigGetInstance(const CInfo *cInfo, const CMPIResult *rslt, const CMPIObjectPath *cop,
                                     const char **properties)
{
    const TraceScope scope;
    return singletonGetInstance(kConfigClass, {cInfo, cop, properties, rslt});
}

CMPIInstance *TAV_STRGConfigSetPropInst(const CInfo *cInfo, const CMPIObjectPath *cop, const char **properties,
                                        const StrgConfRec *record)
{
    const TraceScope scope;
    return singletonSetPropInst(kConfigClass, {cInfo, cop, properties}, record);
}

CMPIStatus TAV_STRGConfigInvokeMethod(const CInfo *cInfo, const CMPIResult *, const CMPIObjectPath *,
                                      const char *methodName, const CMPIArgs *in, CMPIArgs *)
{
    const TraceScope scope;
    return tracedRequest(cInfo, [&] { return invoke(cInfo, methodName, in); });
}

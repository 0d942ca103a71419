// SPDX-License-Identifier: Apache-2.0
#include "provider/provider.h"

#include "lifecycle/access.h"
#include "monitor/monitor.h"
#include "provider/dispatch.h"
#include "runtime/cmpi_data.h"
#include "runtime/memory.h"
#include "runtime/request.h"
#include "runtime/trace.h"

#include <atomic>
#include <mutex>

using namespace tavstrg;

namespace {

constexpr char kTraceFile[] = "tavstrg.log";

std::atomic<const CMPIBroker *> _broker; // both factories receive the same one

// The broker enters a cleanup again, in another thread, while one takes its time: the later one waits and then finds
// the work done.
std::mutex cleaningUp;

const CMPIInstanceMIFT instMIFT__ = {
    CMPIVersion200,
    CMPIVersion200,
    "instanceTAVStorageProvider",
    TAV_StorageProviderCleanup,
    TAV_StorageProviderEnumInstanceNames,
    TAV_StorageProviderEnumInstances,
    TAV_StorageProviderGetInstance,
    TAV_StorageProviderCreateInstance,
    TAV_StorageProviderModifyInstance,
    TAV_StorageProviderDeleteInstance,
    TAV_StorageProviderExecQuery,
};
const CMPIMethodMIFT methMIFT__ = {
    CMPIVersion200,
    CMPIVersion200,
    "methodTAVStorageProvider",
    TAV_StorageProviderMethodCleanup,
    TAV_StorageProviderInvokeMethod,
};
// The interface's types do not say that a broker only reads the tables.
CMPIInstanceMI instanceInterface = {nullptr, const_cast<CMPIInstanceMIFT *>(&instMIFT__)};
CMPIMethodMI methodInterface = {nullptr, const_cast<CMPIMethodMIFT *>(&methMIFT__)};

constexpr CMPIStatus kOk = {CMPI_RC_OK, nullptr};

CMPIStatus failed(const CInfo &cInfo, const char *message)
{
    return statusWithChars(&cInfo, CMPI_RC_ERR_FAILED, message);
}

// Initialises the store if need be and finds out whom the request is for. The caller frees className, also on failure.
CMPIStatus openRequest(const CInfo &cInfo, const CMPIObjectPath *cop, char *&className)
{
    if (strgInitProvider(&cInfo) != 0) {
        TRACE(kFailure, "strgInitProvider() Failure!!");
        return failed(cInfo, "strgInitProvider() Failure!!");
    }
    className = getClassName(cop);
    if (className == nullptr) {
        TRACE(kFailure, "getClassName() Failure!!");
        return failed(cInfo, "getClassName() Failure!!");
    }
    return kOk;
}

// In service mode the monitoring thread keeps the records: without it there is nothing to answer from.
CMPIStatus passGate(const CInfo &cInfo)
{
    if (getServiceMode(&cInfo) == 1 && getThreadSts(strgGetThreadID()) != 1) {
        TRACE(kFailure, "ServiceMode And NonThread Failure!!");
        return failed(cInfo, "ServiceMode But NonThread Failure!!"); // deliberate: not the trace's word
    }
    return kOk;
}

CMPIStatus unknownClass(const CInfo &cInfo, const char *className)
{
    TRACE(kFailure, "ClassName Failure!![%s]", className);
    return failed(cInfo, "Generic Failure!!");
}

CMPIStatus unknownMethod(const CInfo &cInfo, const char *method)
{
    TRACE(kFailure, "MethodName Failure!![%s]", method);
    return failed(cInfo, "Generic Failure!!");
}

CMPIStatus dispatchInstance(InstanceCall DispatchRow::*kind, const CInfo &cInfo, const char *className,
                            const CMPIResult *rslt, const CMPIObjectPath *cop, const char **properties)
{
    const DispatchRow *const row = findClass(className);
    if (row == nullptr || !row->always) {
        if (const CMPIStatus gate = passGate(cInfo); gate.rc != CMPI_RC_OK) {
            return gate;
        }
    }
    if (row == nullptr) {
        return unknownClass(cInfo, className);
    }
    const InstanceCall &call = row->*kind;
    TRACE(kFailure, "->%s()", call.tracedAs);
    return call.handler(&cInfo, rslt, cop, properties);
}

// The frame of GetInstance and EnumInstances.
CMPIStatus instanceRequest(InstanceCall DispatchRow::*kind, const CMPIContext *ctx, const CMPIResult *rslt,
                           const CMPIObjectPath *cop, const char **properties)
{
    TRACE(kFailure, "##start##");
    const CInfo cInfo = {_broker, ctx};
    char *className = nullptr;
    CMPIStatus status = openRequest(cInfo, cop, className);
    if (status.rc == CMPI_RC_OK) {
        status = dispatchInstance(kind, cInfo, className, rslt, cop, properties);
    }
    memfree(className);
    return TRACED(status, kFailure, "## end ##");
}

struct MethodRequest {
    const CMPIResult *rslt;
    const CMPIObjectPath *cop;
    const char *method;
    const CMPIArgs *in;
    CMPIArgs *out;
};

CMPIStatus callMethod(const CInfo &cInfo, const DispatchRow &row, const MethodRequest &request)
{
    const MethodCall *const call = findMethod(row, request.method);
    if (call == nullptr) {
        return unknownMethod(cInfo, request.method);
    }
    TRACE(kFailure, "->%s()", call->tracedAs);
    return call->handler(&cInfo, request.rslt, request.cop, request.method, request.in, request.out);
}

CMPIStatus dispatchMethod(const CInfo &cInfo, const char *className, const MethodRequest &request)
{
    const DispatchRow *const row = findClass(className);
    if (row == nullptr || !row->always) {
        if (const CMPIStatus gate = passGate(cInfo); gate.rc != CMPI_RC_OK) {
            return gate;
        }
    }
    if (row == nullptr || row->methods.empty()) {
        return unknownClass(cInfo, className);
    }
    CMPIStatus status = callMethod(cInfo, *row, request);
    if (row->statusIsReturned) {
        TRACE(kDetail, "CMReturnData()");
        const CMPIUint32 code = status.rc;
        request.rslt->ft->returnData(request.rslt, reinterpret_cast<const CMPIValue *>(&code), CMPI_uint32);
        status.rc = CMPI_RC_OK; // deliberate: the message stays
    }
    return status;
}

// What no class of this provider offers; nothing is initialised for it.
CMPIStatus notSupported()
{
    TRACE(kFailure, "##start##");
    const CInfo cInfo = {_broker, nullptr};
    TRACE(kDetail, "CMSetStatusWithChars() - NOT_SUPPORTED");
    const CMPIStatus status = statusWithChars(&cInfo, CMPI_RC_ERR_NOT_SUPPORTED, "NOT_SUPPORTED");
    return TRACED(status, kFailure, "## end ##");
}

// The frame of both cleanups. The context that the broker hands in is empty, and a call made with it takes the broker
// down: the store gets none.
CMPIStatus cleanUp(bool terminating)
{
    const std::lock_guard held(cleaningUp);
    InitProcess(kTraceFile); // an earlier cleanup may have unloaded the libraries
    TRACE(kFailure, "##start## cterm=[%s]", terminating ? "ExitSFCB" : "TimeOut");
    const CInfo cInfo = {_broker, nullptr};
    TRACE(kDetail, "strgCleanUpProvider()");
    const CMPIStatus status = strgCleanUpProvider(&cInfo, terminating);
    TRACE(kFailure, "## end ## ret=[%d]", static_cast<int>(status.rc));
    if (status.rc == CMPI_RC_OK) {
        FinishProcess();
    }
    return status;
}

} // namespace

int TAV_StorageProviderInitProcess()
{
    const TraceScope scope;
    InitProcess(kTraceFile);
    TRACE(kDetail, "pthread_mutex_init(instMutexSt)");
    return strgInitStoreMutex();
}

CMPIInstanceMI *TAVStorageProvider_Create_InstanceMI(const CMPIBroker *broker, const CMPIContext *, CMPIStatus *)
{
    _broker = broker;
    TAV_StorageProviderInitProcess();
    return &instanceInterface;
}

CMPIMethodMI *TAVStorageProvider_Create_MethodMI(const CMPIBroker *broker, const CMPIContext *, CMPIStatus *)
{
    _broker = broker;
    TAV_StorageProviderInitProcess();
    return &methodInterface;
}

CMPIStatus TAV_StorageProviderGetInstance(CMPIInstanceMI *, const CMPIContext *ctx, const CMPIResult *rslt,
                                          const CMPIObjectPath *cop, const char **properties)
{
    const TraceScope scope;
    return instanceRequest(&DispatchRow::get, ctx, rslt, cop, properties);
}

CMPIStatus TAV_StorageProviderEnumInstances(CMPIInstanceMI *, const CMPIContext *ctx, const CMPIResult *rslt,
                                            const CMPIObjectPath *cop, const char **properties)
{
    const TraceScope scope;
    return instanceRequest(&DispatchRow::enumerate, ctx, rslt, cop, properties);
}

CMPIStatus TAV_StorageProviderInvokeMethod(CMPIMethodMI *, const CMPIContext *ctx, const CMPIResult *rslt,
                                           const CMPIObjectPath *cop, const char *method, const CMPIArgs *in,
                                           CMPIArgs *out)
{
    const TraceScope scope;
    TRACE(kFailure, "##start##");
    const CInfo cInfo = {_broker, ctx};
    char *className = nullptr;
    CMPIStatus status = openRequest(cInfo, cop, className);
    if (status.rc == CMPI_RC_OK) {
        const MethodRequest request = {rslt, cop, method != nullptr ? method : "", in, out};
        status = dispatchMethod(cInfo, className, request);
    }
    memfree(className);
    TRACE(kDetail, "CMReturnDone()");
    rslt->ft->returnDone(rslt);
    return TRACED(status, kFailure, "## end ##");
}

CMPIStatus TAV_StorageProviderCleanup(CMPIInstanceMI *, const CMPIContext *, CMPIBoolean terminating)
{
    const TraceScope scope;
    return cleanUp(terminating != 0);
}

CMPIStatus TAV_StorageProviderMethodCleanup(CMPIMethodMI *, const CMPIContext *, CMPIBoolean terminating)
{
    const TraceScope scope;
    return cleanUp(terminating != 0);
}

CMPIStatus TAV_StorageProviderEnumInstanceNames(CMPIInstanceMI *, const CMPIContext *, const CMPIResult *,
                                                const CMPIObjectPath *)
{
    const TraceScope scope;
    return notSupported();
}

CMPIStatus TAV_StorageProviderCreateInstance(CMPIInstanceMI *, const CMPIContext *, const CMPIResult *,
                                             const CMPIObjectPath *, const CMPIInstance *)
{
    const TraceScope scope;
    return notSupported();
}

CMPIStatus TAV_StorageProviderModifyInstance(CMPIInstanceMI *, const CMPIContext *, const CMPIResult *,
                                             const CMPIObjectPath *, const CMPIInstance *, const char **)
{
    const TraceScope scope;
    return notSupported();
}

CMPIStatus TAV_StorageProviderSetInstance(CMPIInstanceMI *, const CMPIContext *, const CMPIResult *,
                                          const CMPIObjectPath *, const CMPIInstance *, const char **)
{
    const TraceScope scope;
    return notSupported();
}

CMPIStatus TAV_StorageProviderDeleteInstance(CMPIInstanceMI *, const CMPIContext *, const CMPIResult *,
                                             const CMPIObjectPath *)
{
    const TraceScope scope;
    return notSupported();
}

CMPIStatus TAV_StorageProviderExecQuery(CMPIInstanceMI *, const CMPIContext *, const CMPIResult *,
                                        const CMPIObjectPath *, const char *, const char *)
{
    const TraceScope scope;
    return notSupported();
}

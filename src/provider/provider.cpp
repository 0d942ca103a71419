// SPDX-License-Identifier: Apache-2.0
#include "provider/provider.h"

#include "disks/current/current.h"
#include "lifecycle/access.h"
#include "monitor/monitor.h"
#include "provider/dispatch.h"
#include "runtime/cmpi_data.h"
#include "runtime/memory.h"
#include "runtime/request.h"
#include "runtime/side_by_side.h"
#include "runtime/trace.h"

#include <atomic>
#include <mutex>

using namespace tavstrg;

namespace {

std::atomic<const CMPIBroker *> _broker; // both factories receive the same one

// The broker enters a cleanup again, in another thread, while one takes long: the later one waits and then finds the
// work done.
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

struct MethodRequest {
    const CInfo *cInfo;
    const CMPIObjectPath *cop;
    const char *method;
    const CMPIArgs *in;
    CMPIArgs *out;
    const CMPIResult *rslt;
};

// Traces a failure and refuses with the same text.
Refusal refuse(const char *text)
{
    TRACE(kFailure, "%s", text);
    return refusal(CMPI_RC_ERR_FAILED, "%s", text);
}

// In service mode the monitoring thread updates the records: without it there is nothing to answer from.
Outcome passGate(const CInfo *cInfo)
{
    if (getServiceMode(cInfo) == 1 && getThreadSts(strgGetThreadID()) != 1) {
        TRACE(kFailure, "ServiceMode And NonThread Failure!!");
        // Deliberate: another word than the trace's.
        return refusal(CMPI_RC_ERR_FAILED, "ServiceMode But NonThread Failure!!");
    }
    return {};
}

Refusal unknownClass(const char *className)
{
    TRACE(kFailure, "ClassName Failure!![%s]", className);
    return refusal(CMPI_RC_ERR_FAILED, "Generic Failure!!");
}

Refusal unknownMethod(const char *method)
{
    TRACE(kFailure, "MethodName Failure!![%s]", method);
    return refusal(CMPI_RC_ERR_FAILED, "Generic Failure!!");
}

// Answers the request by the row of its class, unless the gate is closed or no class has that name.
template <class Request, class Answer>
CMPIStatus dispatch(const Request &request, const DispatchRow *row, const char *className, Answer answer)
{
    if (row == nullptr || !row->always) {
        if (const Outcome refused = passGate(request.cInfo)) {
            return statusOf(request.cInfo, refused);
        }
    }
    return row == nullptr ? statusOf(request.cInfo, unknownClass(className)) : answer(*row);
}

// The frame of all requests: initialises the store if need be, finds the class and dispatches.
template <class Request, class Answer> CMPIStatus serve(const Request &request, Answer answer)
{
    if (const DispatchRow *const row = findClassWithoutStore(request.cop)) {
        return dispatch(request, row, row->className, answer);
    }
    char *className = nullptr;
    CMPIStatus status = {CMPI_RC_OK, nullptr};
    if (strgInitProvider(request.cInfo) != 0) {
        status = statusOf(request.cInfo, refuse("strgInitProvider() Failure!!"));
    } else if ((className = getClassName(request.cop)) == nullptr) {
        status = statusOf(request.cInfo, refuse("getClassName() Failure!!"));
    } else {
        status = dispatch(request, findClass(className), className, answer);
    }
    memfree(className);
    return status;
}

// The frame of GetInstance, EnumInstances and EnumInstanceNames.
CMPIStatus instanceRequest(InstanceCall DispatchRow::*kind, const InstanceRequest &request)
{
    TRACE(kFailure, "##start##");
    const CMPIStatus status = serve(request, [&](const DispatchRow &row) {
        const InstanceCall &call = row.*kind;
        TRACE(kFailure, "->%s()", call.tracedAs);
        return call.handler(request.cInfo, request.rslt, request.cop, request.properties);
    });
    return TRACED(status, kFailure, "## end ##");
}

CMPIStatus callMethod(const DispatchRow &row, const MethodRequest &request)
{
    const MethodCall *const call = findMethod(row, request.method);
    if (call == nullptr) {
        return statusOf(request.cInfo, unknownMethod(request.method));
    }
    TRACE(kFailure, "->%s()", call->tracedAs);
    return call->handler(request.cInfo, request.rslt, request.cop, request.method, request.in, request.out);
}

CMPIStatus answerMethod(const DispatchRow &row, const MethodRequest &request)
{
    if (row.methods.empty()) {
        return statusOf(request.cInfo, unknownClass(row.className));
    }
    CMPIStatus status = callMethod(row, request);
    if (row.statusIsReturned) {
        TRACE(kDetail, "CMReturnData()");
        const CMPIUint32 code = status.rc;
        request.rslt->ft->returnData(request.rslt, reinterpret_cast<const CMPIValue *>(&code), CMPI_uint32);
        status.rc = CMPI_RC_OK; // deliberate: the message stays
    }
    return status;
}

// An operation that no class of this provider has. Initialises nothing.
CMPIStatus notSupported()
{
    TRACE(kFailure, "##start##");
    const CInfo cInfo = {_broker, nullptr};
    TRACE(kDetail, "CMSetStatusWithChars() - NOT_SUPPORTED");
    const CMPIStatus status = statusOf(&cInfo, refusal(CMPI_RC_ERR_NOT_SUPPORTED, "NOT_SUPPORTED"));
    return TRACED(status, kFailure, "## end ##");
}

// The engine of the disks first: while a thread is in its code, nothing may be unloaded.
CMPIStatus cleanUpAll(const CInfo *cInfo, bool terminating)
{
    if (!disks::forgetCurrentDisks() && !terminating) {
        TRACE(kFailure, "a request for the disks is still at work");
        return statusOf(cInfo, refusal(CMPI_RC_DO_NOT_UNLOAD, "A request for the disks is still at work"));
    }
    TRACE(kDetail, "strgCleanUpProvider()");
    return strgCleanUpProvider(cInfo, terminating);
}

// The frame of both cleanups. The broker's context is empty there, and a call made with it crashes the broker: the
// store gets none.
CMPIStatus cleanUp(bool terminating)
{
    const std::lock_guard held(cleaningUp);
    InitProcess(kTraceFile); // an earlier cleanup may have unloaded the libraries
    TRACE(kFailure, "##start## cterm=[%s]", terminating ? "ExitSFCB" : "TimeOut");
    const CInfo cInfo = {_broker, nullptr};
    const CMPIStatus status = cleanUpAll(&cInfo, terminating);
    TRACE(kFailure, "## end ## ret=[%d]", static_cast<int>(status.rc));
    joinReturned();
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
    const CInfo cInfo = {_broker, ctx};
    return instanceRequest(&DispatchRow::get, {&cInfo, cop, properties, rslt});
}

CMPIStatus TAV_StorageProviderEnumInstances(CMPIInstanceMI *, const CMPIContext *ctx, const CMPIResult *rslt,
                                            const CMPIObjectPath *cop, const char **properties)
{
    const TraceScope scope;
    const CInfo cInfo = {_broker, ctx};
    return instanceRequest(&DispatchRow::enumerate, {&cInfo, cop, properties, rslt});
}

CMPIStatus TAV_StorageProviderInvokeMethod(CMPIMethodMI *, const CMPIContext *ctx, const CMPIResult *rslt,
                                           const CMPIObjectPath *cop, const char *method, const CMPIArgs *in,
                                           CMPIArgs *out)
{
    const TraceScope scope;
    TRACE(kFailure, "##start##");
    const CInfo cInfo = {_broker, ctx};
    const MethodRequest request = {&cInfo, cop, method != nullptr ? method : "", in, out, rslt};
    const CMPIStatus status = serve(request, [&](const DispatchRow &row) { return answerMethod(row, request); });
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

CMPIStatus TAV_StorageProviderEnumInstanceNames(CMPIInstanceMI *, const CMPIContext *ctx, const CMPIResult *rslt,
                                                const CMPIObjectPath *cop)
{
    const TraceScope scope;
    if (findClassWithNames(cop) == nullptr) {
        return notSupported();
    }
    const CInfo cInfo = {_broker, ctx};
    return instanceRequest(&DispatchRow::names, {&cInfo, cop, nullptr, rslt});
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

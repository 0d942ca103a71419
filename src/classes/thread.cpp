// SPDX-License-Identifier: Apache-2.0
#include "classes/instance.h"
#include "lifecycle/access.h"
#include "monitor/monitor.h"

#include <mutex>

using namespace tavstrg;

namespace {

std::mutex startStop; // two starts at the same moment must not make two threads

uint16_t threadStatus()
{
    return static_cast<uint16_t>(getThreadSts(strgGetThreadID()));
}

Outcome getStatus(const InstanceRequest &request)
{
    const uint16_t running = threadStatus();
    CMPIInstance *const built = TAV_STRGThreadSetPropInst(request.cInfo, request.cop, request.properties, &running);
    return returnInstance(request, "TAV_STRGThreadSetPropInst", built, Following::none);
}

Outcome start(const CInfo *cInfo)
{
    const std::lock_guard held(startStop);
    if (getServiceMode(cInfo) != 1) {
        TRACE(kFailure, "ServiceMode is non-Service Failure!!");
        return refusal(CMPI_RC_ERR_FAILED, "ServiceMode is non-Service FAILED");
    }
    if (threadStatus() != 0) {
        TRACE(kFailure, "Thread is Already WakeUp Failure!!");
        return refusal(CMPI_RC_ERR_FAILED, "Thread is Already WakeUp FAILED");
    }
    // A stop that this start waited for has freed the store, which the thread updates but does not build; another
    // request may be building it at this moment.
    if ((gst_first != kBuilt && strgInitProvider(cInfo) != 0) || strgCreateThread(cInfo) != 0) {
        TRACE(kFailure, "getClassName() Failure!!"); // deliberate: this failure's line names another call
        return failedCall("strgCreateThread");
    }
    return {};
}

// Deliberate: a stop that is refused frees the store's records and segments all the same.
Refusal refuseStop(const CInfo *cInfo, const char *message)
{
    if (strgFreeInstance(cInfo) != 0) {
        TRACE(kFailure, "fsFreeInstance() Failure!!");
    }
    return refusal(CMPI_RC_ERR_FAILED, "%s", message);
}

Outcome stop(const CInfo *cInfo)
{
    const std::lock_guard held(startStop);
    if (getServiceMode(cInfo) != 1) {
        TRACE(kFailure, "ServiceMode is non-Service Failure!!");
        return refuseStop(cInfo, "ServiceMode is non-Service FAILED");
    }
    if (threadStatus() != 1) {
        TRACE(kFailure, "Thread is Already Pause Failure!!");
        return refuseStop(cInfo, "Thread is Already Pause FAILED");
    }
    strgExitThread(cInfo);
    return {};
}

} // namespace

CMPIInstance *TAV_STRGThreadSetPropInst(const CInfo *cInfo, const CMPIObjectPath *cop, const char **properties,
                                        const uint16_t *status)
{
    const TraceScope scope;
    TRACE(kDetail, "_IN_");
    if (cInfo == nullptr) {
        return TRACED(nullptr, kFailure, "_OUT_ param(cInfo) Failure!!");
    }
    if (cop == nullptr) {
        return TRACED(nullptr, kFailure, "_OUT_ Param(cop) Failure!!");
    }
    if (status == nullptr) {
        return TRACED(nullptr, kFailure, "_OUT_ Param(dattotal) Failure!!"); // deliberate: the totals' name for it
    }
    CmpiHolder<CMPIObjectPath> path(newPath({cInfo, cop, properties}, "TAV_StorageThread"));
    if (!path) {
        return nullptr;
    }
    CmpiHolder<CMPIInstance> instance(newInstance(cInfo, path.get()));
    path.release();
    if (!instance || !limitProperties(instance.get(), properties)) {
        return nullptr;
    }
    TRACE(kDetail, "CMSetProperty() ThreadRunning=[%d]", *status);
    instance.get()->ft->setProperty(instance.get(), "ThreadRunning", reinterpret_cast<const CMPIValue *>(status),
                                    CMPI_uint16);
    return TRACED(instance.handOver(), kDetail, "_OUT_");
}

CMPIStatus TAV_STRGThreadGetInstance(const CInfo *cInfo, const CMPIResult *rslt, const CMPIObjectPath *cop,
                                     const char **properties)
{
    const TraceScope scope;
    return tracedRequest(cInfo, [&] { return getStatus({cInfo, cop, properties, rslt}); });
}

CMPIStatus TAV_STRGThreadStartInvokeMethod(const CInfo *cInfo, const CMPIResult *)
{
    const TraceScope scope;
    return tracedRequest(cInfo, [&] { return start(cInfo); });
}

CMPIStatus TAV_STRGThreadStopInvokeMethod(const CInfo *cInfo, const CMPIResult *)
{
    const TraceScope scope;
    return tracedRequest(cInfo, [&] { return stop(cInfo); });
}

// SPDX-License-Identifier: Apache-2.0
#include "classes/classes.h"
#include "classes/instance.h"
#include "lifecycle/access.h"
#include "monitor/monitor.h"
#include "runtime/cmpi_data.h"
#include "runtime/holders.h"
#include "runtime/trace.h"

#include <mutex>

using namespace tavstrg;

namespace {

std::mutex startStop; // two requests that start at once must not make two threads

uint16_t threadStatus()
{
    return static_cast<uint16_t>(getThreadSts(strgGetThreadID()));
}

CMPIStatus answer(const CInfo *cInfo, const CMPIResult *rslt, const CMPIObjectPath *cop, const char **properties)
{
    const uint16_t running = threadStatus();
    const CmpiHolder<CMPIInstance> instance(TAV_STRGThreadSetPropInst(cInfo, cop, properties, &running));
    if (!instance) {
        TRACE(kFailure, "TAV_STRGThreadSetPropInst() Failure!!");
        return failedCall(cInfo, "TAV_STRGThreadSetPropInst");
    }
    const CMPIStatus returned = returnInstance(cInfo, rslt, instance.get());
    if (returned.rc == CMPI_RC_OK) {
        returnDone(rslt);
    }
    return returned;
}

CMPIStatus start(const CInfo *cInfo)
{
    const std::lock_guard held(startStop);
    if (getServiceMode(cInfo) != 1) {
        TRACE(kFailure, "ServiceMode is non-Service Failure!!");
        return statusWithChars(cInfo, CMPI_RC_ERR_FAILED, "ServiceMode is non-Service FAILED");
    }
    if (threadStatus() != 0) {
        TRACE(kFailure, "Thread is Already WakeUp Failure!!");
        return statusWithChars(cInfo, CMPI_RC_ERR_FAILED, "Thread is Already WakeUp FAILED");
    }
    // A stop that this start waited for has freed the store, which the thread keeps and does not build; another request
    // may be building it anew.
    if ((gst_first != 2 && strgInitProvider(cInfo) != 0) || strgCreateThread(cInfo) != 0) {
        TRACE(kFailure, "getClassName() Failure!!"); // deliberate: this failure's line names another call
        return failedCall(cInfo, "strgCreateThread");
    }
    return {CMPI_RC_OK, nullptr};
}

// Deliberate: a stop that is refused frees the store's records and segments all the same.
CMPIStatus refuseStop(const CInfo *cInfo, const char *message)
{
    if (strgFreeInstance(cInfo) != 0) {
        TRACE(kFailure, "fsFreeInstance() Failure!!");
    }
    return statusWithChars(cInfo, CMPI_RC_ERR_FAILED, message);
}

CMPIStatus stop(const CInfo *cInfo)
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
    return {CMPI_RC_OK, nullptr};
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
    CmpiHolder<CMPIObjectPath> path(newPath(cInfo, cop, "TAV_StorageThread"));
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
    TRACE(kDetail, "_IN_");
    CMPIStatus status{CMPI_RC_ERR_FAILED, nullptr};
    if (cInfo == nullptr) {
        TRACE(kFailure, "param(cInfo) Failure!!");
    } else {
        status = answer(cInfo, rslt, cop, properties);
    }
    return TRACED(status, kDetail, "_OUT_");
}

CMPIStatus TAV_STRGThreadStartInvokeMethod(const CInfo *cInfo, const CMPIResult *)
{
    const TraceScope scope;
    TRACE(kDetail, "_IN_");
    CMPIStatus status{CMPI_RC_ERR_FAILED, nullptr};
    if (cInfo == nullptr) {
        TRACE(kFailure, "param(cInfo) Failure!!");
    } else {
        status = start(cInfo);
    }
    return TRACED(status, kDetail, "_OUT_");
}

CMPIStatus TAV_STRGThreadStopInvokeMethod(const CInfo *cInfo, const CMPIResult *)
{
    const TraceScope scope;
    TRACE(kDetail, "_IN_");
    CMPIStatus status{CMPI_RC_ERR_FAILED, nullptr};
    if (cInfo == nullptr) {
        TRACE(kFailure, "param(cInfo) Failure!!");
    } else {
        status = stop(cInfo);
    }
    return TRACED(status, kDetail, "_OUT_");
}

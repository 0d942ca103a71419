// SPDX-License-Identifier: Apache-2.0
// What happens to the store when the broker unloads the provider or stops.
#include "lifecycle/access.h"
#include "lifecycle/gate.h"
#include "monitor/monitor.h"
#include "runtime/cmpi_data.h"
#include "runtime/trace.h"

#include <mutex>

using namespace tavstrg;

namespace {

// The broker enters a cleanup again while one takes long. The later one finds the work done.
std::mutex cleaning;

// The end of a cleanup that failed at a step: "strgSetInstance" or "strgFreeInstance".
Refusal failedAt(const char *step)
{
    TRACE(kFailure, "%s Failure!!", step);
    TRACE(kDetail, "_OUT_ rc=[CMPI_RC_ERR_FAILED]");
    return refusal(CMPI_RC_ERR_FAILED, "%s() Failure!!", step);
}

// Waits for a store under construction. When the broker stops, waits as long as slow disks may take: nothing frees what
// is built after the cleanup.
void awaitInitialisation(bool terminating)
{
    constexpr int kPatience = 20; // times three seconds
    for (int round = 0; gst_first == kBuilding && round < (terminating ? kPatience : 1); ++round) {
        waitWhileInitialising(0);
    }
}

// Frees what a failed initialisation left, which an unload must not leak, if no store is built. Returns false if one is
// built after all: a request that begins now waits at this lock, or began before the second check.
bool releaseWhereNothingIsBuilt()
{
    const std::lock_guard held(g_collectionLock);
    if (gst_first != kNotBuilt) {
        return false;
    }
    releaseEarlierBuild();
    return true;
}

Outcome cleanUpNonService(const CInfo *cInfo, bool terminating)
{
    // A store under construction is neither saved nor freed: the file would be overwritten with what is not there yet.
    awaitInitialisation(terminating);
    while (gst_first == kNotBuilt) {
        if (releaseWhereNothingIsBuilt()) {
            return TRACED(Outcome(), kDetail, "_OUT_ rc=[CMPI_RC_OK] Already CleanUp.");
        }
        awaitInitialisation(terminating);
    }
    if (gst_first == kBuilding) {
        return failedAt("strgSetInstance");
    }
    TRACE(kDetail, "strgSetInstance()");
    if (strgSetInstance(cInfo) != 0) {
        return failedAt("strgSetInstance");
    }
    TRACE(kDetail, "strgFreeInstance()");
    if (strgFreeInstance(cInfo) != 0) {
        return failedAt("strgFreeInstance");
    }
    strgDestroyLocks();
    int32_t built = kBuilt; // a stop may have reset it before, and a request may build again
    gst_first.compare_exchange_strong(built, kNotBuilt);
    return TRACED(Outcome(), kDetail, "_OUT_");
}

Outcome cleanUpService(const CInfo *cInfo, bool terminating)
{
    const std::lock_guard held(g_threadControl); // no thread starts between the look and what follows from it
    if (getThreadSts(&gst_thid) != 1) {
        TRACE(kDetail, "ServiceMode but Non-Thread.");
        forgetDeadThread();
        awaitInitialisation(terminating);
        if (strgFreeInstance(cInfo) != 0) {
            TRACE(kFailure, "fsFreeInstance() Failure!!");
        }
        return TRACED(Outcome(), kDetail, "_OUT_ rc=[CMPI_RC_OK]");
    }
    if (terminating) {
        TRACE(kDetail, "CleanUp Exit SFCB.");
        strgExitThread(cInfo);
        return TRACED(Outcome(), kDetail, "_OUT_ rc=[CMPI_RC_OK]");
    }
    TRACE(kDetail, "CleanUp TimeOut.");
    return TRACED(refusal(CMPI_RC_DO_NOT_UNLOAD, "MonitorThread is Running!!"), kDetail,
                  "_OUT_ rc=[CMPI_RC_DO_NOT_UNLOAD]");
}

} // namespace

CMPIStatus strgCleanUpProvider(const CInfo *cInfo, bool terminating)
{
    const TraceScope scope;
    const std::lock_guard held(cleaning);
    TRACE(kDetail, "_IN_");
    return statusOf(cInfo, getServiceMode(cInfo) == 1 ? cleanUpService(cInfo, terminating)
                                                      : cleanUpNonService(cInfo, terminating));
}

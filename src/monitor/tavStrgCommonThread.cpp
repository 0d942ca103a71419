// The monitoring thread's start and end.
#include "monitor/tavStrgCommonMonitor.h"
#include "provider/runtime/tavCommonMemory.h"

#include <atomic>
#include <cerrno>
#include <mutex>

pthread_t gst_thid = 0;
CInfo *gst_thcInfo = nullptr;

namespace {

std::mutex stopping; // a request and a cleanup may stop at the same moment: one joins, saves and frees, then the other

// Ids are words to the threads' functions; the trace prints their low 32 bits.
int tracedId(pthread_t tid)
{
    return static_cast<int>(tid);
}

void stopThread(const char *function)
{
    if (getThreadSts(&gst_thid) != 1) {
        return;
    }
    const std::atomic_ref<pthread_t> shared(gst_thid);
    const pthread_t tid = shared;
    TRACE_AS(function, kDetail, "pthread_cancel(%d)", tracedId(tid));
    pthread_cancel(tid);
    TRACE_AS(function, kDetail, "pthread_join()");
    if (const int error = pthread_join(tid, nullptr); error != 0) {
        TRACE_AS(function, kFailure, "pthread_join Failure!! errno=[%d]", error);
    }
    shared = 0;
}

} // namespace

pthread_t *strgGetThreadID()
{
    TRACE(kDetail, "=== gst_thid=[%d] ===", tracedId(std::atomic_ref(gst_thid)));
    return &gst_thid;
}

std::atomic<int32_t> *strgGetFirstProc()
{
    TRACE(kDetail, "=== gst_first=[%d] ===", gst_first.load());
    return &gst_first;
}

// There is no thread routine in this build, so every start is answered as one that the system refused.
int strgCreateThread(const CInfo *cInfo)
{
    TRACE(kDetail, "_IN_");
    if (cInfo == nullptr) {
        return TRACED(-1, kFailure, "_OUT_ Param Failure!!");
    }
    return TRACED(-1, kFailure, "_OUT_ pthread_create() Failure!! err=[%d]", ENOSYS);
}

void strgExitThread(const CInfo *cInfo)
{
    const std::lock_guard held(stopping);
    TRACE(kDetail, "_IN_");
    stopThread(__func__);
    memfree(gst_thcInfo);
    if (strgSetInstance(cInfo) != 0) {
        TRACE(kFailure, "strgSetInstance() Failure!!");
    }
    if (strgFreeInstance(cInfo) != 0) {
        TRACE(kFailure, "strgFreeInstance() Failure!!");
    }
    strgDestroyLocks();
    int32_t built = 2; // a request that builds the store anew meanwhile keeps its state
    gst_first.compare_exchange_strong(built, 0);
    TRACE(kDetail, "_OUT_");
}

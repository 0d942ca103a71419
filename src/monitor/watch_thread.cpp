// SPDX-License-Identifier: Apache-2.0
// The monitoring thread: its start, its loop and its end.
#include "monitor/monitor.h"
#include "monitor/uevents.h"
#include "runtime/cancel.h"
#include "runtime/memory.h"
#include "runtime/options.h"
#include "runtime/pause.h"
#include "runtime/side_by_side.h"

#include <cerrno>
#include <mutex>
#include <unistd.h>

using namespace tavstrg;

pthread_t gst_thid = 0;
CInfo *gst_thcInfo = nullptr;

std::recursive_mutex tavstrg::g_threadControl;

namespace {

constexpr int32_t kDefaultCycle = 60; // seconds

// Sets the mark that shows the thread's end, however it ends.
class EndMark {
public:
    EndMark() = default;
    ~EndMark() { threadEnds(); }
    EndMark(const EndMark &) = delete;
    EndMark &operator=(const EndMark &) = delete;
};

// A stored cycle of 0, which only a damaged file or segment can hold, must not make the thread spin.
unsigned secondsToSleep(int32_t cycle)
{
    return static_cast<unsigned>(cycle < 1 ? kDefaultCycle : cycle);
}

void sleepPlainly(unsigned seconds)
{
    const CancelSwitch on(PTHREAD_CANCEL_ENABLE);
    pauseForSeconds(seconds);
}

// The sleep ends early when a disk comes or goes.
void sleepUntilEvent(UeventSocket &events, unsigned seconds)
{
    if (const int error = events.open(); error != 0) {
        TRACE(kFailure, "uevents cannot be received: errno=[%d]", error);
        sleepPlainly(seconds);
        return;
    }
    unsigned left = 0;
    switch (events.sleep(seconds, left)) {
    case Slept::whole:
        break;
    case Slept::untilEvent:
        TRACE(kDetail, "- uevent -");
        break;
    case Slept::failed:
        sleepPlainly(left);
        break;
    }
}

void sleepOneCycle(UeventSocket &events)
{
    const int32_t cycle = gst_SleepSec;
    TRACE(kDetail, "- sleep[%d]sec -", cycle);
    if (currentOptions().has(Option::uevents)) {
        sleepUntilEvent(events, secondsToSleep(cycle));
    } else {
        events.drop();
        sleepPlainly(secondsToSleep(cycle));
    }
    TRACE(kDetail, "- wakeUp -");
}

int startThread()
{
    pthread_t tid = 0;
    const int error = pthread_create(&tid, nullptr, strgWatchThread, gst_thcInfo);
    if (error != 0) {
        TRACE(kFailure, "_OUT_ pthread_create() Failure!! err=[%d]", error);
        memfree(gst_thcInfo);
        return -1;
    }
    threadStarted(&gst_thid, tid);
    return TRACED(0, kDetail, "_OUT_ tid=[%d]", tracedId(tid));
}

void stopThread()
{
    if (getThreadSts(&gst_thid) != 1) {
        return;
    }
    const pthread_t tid = claimThread(&gst_thid);
    if (tid == 0) {
        return; // it died just now
    }
    TRACE(kDetail, "pthread_cancel(%d)", tracedId(tid));
    pthread_cancel(tid);
    TRACE(kDetail, "pthread_join()");
    if (const int error = pthread_join(tid, nullptr); error != 0) {
        TRACE(kFailure, "pthread_join Failure!! errno=[%d]", error);
    }
    threadJoined(&gst_thid);
    joinReturned();
}

} // namespace

void tavstrg::forgetDeadThread()
{
    const std::lock_guard held(g_threadControl);
    if (threadNow(&gst_thid) == 0 && gst_thcInfo != nullptr) {
        memfree(gst_thcInfo);
    }
}

pthread_t *strgGetThreadID()
{
    const TraceScope scope;
    TRACE(kDetail, "=== gst_thid=[%d] ===", tracedId(threadNow(&gst_thid)));
    return &gst_thid;
}

std::atomic<int32_t> *strgGetFirstProc()
{
    const TraceScope scope;
    TRACE(kDetail, "=== gst_first=[%d] ===", gst_first.load());
    return &gst_first;
}

int strgCreateThread(const CInfo *cInfo)
{
    const TraceScope scope;
    const std::lock_guard held(g_threadControl);
    TRACE(kDetail, "_IN_");
    if (cInfo == nullptr) {
        return TRACED(-1, kFailure, "_OUT_ Param Failure!!");
    }
    forgetDeadThread();
    gst_thcInfo = static_cast<CInfo *>(memalloc(sizeof(CInfo)));
    if (gst_thcInfo == nullptr) {
        return TRACED(-1, kFailure, "_OUT_ th_cInfo alloc Failure!!");
    }
    gst_thcInfo->broker = cInfo->broker;
    gst_thcInfo->context = cInfo->broker->bft->prepareAttachThread(cInfo->broker, cInfo->context);
    TRACE(kDetail, "CBPrepareAttachThread() brk=[%p],ctx=[%p] -> th_brk=[%p],th_ctx=[%p]",
          static_cast<const void *>(cInfo->broker), static_cast<const void *>(cInfo->context),
          static_cast<const void *>(gst_thcInfo->broker), static_cast<const void *>(gst_thcInfo->context));
    return startThread();
}

// Nothing on this path is noexcept except destructors: a cancel unwinds it.
void *strgWatchThread(void *thcInfo)
{
    const TraceScope scope;
    const EndMark mark; // declared before all that the thread uses, so that it is destroyed after it
    const CancelSwitch off(PTHREAD_CANCEL_DISABLE);
    UeventSocket events;
    InitProcess(kTraceFile);
    TRACE(kDetail, "_IN_");
    const auto *const cInfo = static_cast<const CInfo *>(thcInfo);
    TRACE(kDetail, "CBAttachThread(brk=[%p],ctx=[%p])", static_cast<const void *>(cInfo->broker),
          static_cast<const void *>(cInfo->context));
    cInfo->broker->bft->attachThread(cInfo->broker, cInfo->context);
    TRACE(kDetail, "Thread_Loop start.");
    for (;;) {
        TRACE(kDetail, "strgCheckConfigChange()");
        if (strgCheckConfigChange(cInfo) != 0) {
            TRACE(kFailure, "strgCheckConfigChange() Failure!!");
        }
        sleepOneCycle(events);
    }
}

void strgExitThread(const CInfo *cInfo)
{
    const TraceScope scope;
    const std::lock_guard held(g_threadControl);
    TRACE(kDetail, "_IN_");
    stopThread();
    memfree(gst_thcInfo);
    if (strgSetInstance(cInfo) != 0) {
        TRACE(kFailure, "strgSetInstance() Failure!!");
    }
    if (strgFreeInstance(cInfo) != 0) {
        TRACE(kFailure, "strgFreeInstance() Failure!!");
    }
    strgDestroyLocks();
    int32_t built = kBuilt; // a request that builds the store again meanwhile keeps its state
    gst_first.compare_exchange_strong(built, kNotBuilt);
    TRACE(kDetail, "_OUT_");
}

// SPDX-License-Identifier: Apache-2.0
// Bringing one class up to date and handing it out.
#include "lifecycle/access.h"
#include "monitor/monitor.h"
#include "runtime/trace.h"
#include "runtime/turns.h"
#include "store/arrays.h"

#include <atomic>
#include <optional>

using namespace tavstrg;

namespace {

bool reload(const CInfo *cInfo, int classId)
{
    TRACE(kDetail, "setShmToInst(%d)", classId);
    if (setShmToInst(cInfo, &shmSt[classId], &instSt[classId]) != 0) {
        return TRACED(false, kFailure, "_OUT_ setShmToInst(%d) Failure!!", classId);
    }
    return true;
}

// The monitoring thread keeps the segments current.
bool reloadFromThread(const CInfo *cInfo, int classId)
{
    if (segmentNow(shmSt[classId]).num > 0) {
        if (!reload(cInfo, classId)) {
            return false;
        }
    } else {
        TRACE(kDetail, "shmSt[%d].shmNum=0", classId);
        freeRecords(takeRecordsWithoutSegment(instSt[classId], shmSt[classId]));
    }
    TRACE(kDetail, "- return TRUE classID=[%d]-", classId);
    strgLogDumpInstanceDat(classId, instSt);
    return true;
}

// So that a configuration that another process of the broker changed becomes visible.
bool reloadConfig(const CInfo *cInfo)
{
    if (!reload(cInfo, TAV_CID_STRG_CONF)) {
        return false;
    }
    TRACE(kDetail, "- return Config -");
    strgLogDumpInstanceDat(TAV_CID_STRG_CONF, instSt);
    return true;
}

// The collections of requests outside service mode. Those that have begun are numbered from 1; the last one that ended,
// and its result, are guarded by the store's lock.
std::atomic<uint64_t> begun = 0;
uint64_t lastEnded = 0;
int resultOfLast = 0;

// Takes the result of a collection that began after the request arrived, or collects. The caller holds the store's
// lock.
int collect(const CInfo *cInfo, uint64_t lastForeign)
{
    if (lastEnded > lastForeign) {
        return TRACED(resultOfLast, kDetail, "- shared collection -");
    }
    const uint64_t number = ++begun;
    resultOfLast = strgCheckConfigChange(cInfo);
    lastEnded = number;
    return resultOfLast;
}

// Returns the result that the caller gets together with the records, or nothing if it gets no records; that failure is
// traced.
std::optional<int> bringUpToDate(const CInfo *cInfo, int classId, uint64_t lastForeign)
{
    const bool locked = getServiceMode(cInfo) != 1;
    if (!locked && getThreadSts(&gst_thid) == 1) {
        return reloadFromThread(cInfo, classId) ? std::optional(0) : std::nullopt;
    }
    if (classId == TAV_CID_STRG_CONF) {
        return reloadConfig(cInfo) ? std::optional(0) : std::nullopt;
    }
    return locked ? collect(cInfo, lastForeign) : strgCheckConfigChange(cInfo);
}

// Sets the class's descriptor to what it is at this moment. Returns false when the store is being freed or built, so
// that no records does not mean no devices.
bool handOut(int classId, DatInfo &dat)
{
    const RecordsReader reader(classId, dat);
    return recordsHeld(dat) > 0 || strgEmptyIsKnown();
}

} // namespace

bool tavstrg::strgEmptyIsKnown()
{
    // The store is freed only while there is no thread: one that exists at this moment was started on what was freed
    // before. It must be looked for under the caller's lock, which the freeing takes for each array.
    return strgIsBuilt() || (gst_first == kBuilt && threadNow(&gst_thid) != 0);
}

int strgGetInstance(const CInfo *cInfo, int classId, DatInfo *datInfo)
{
    const TraceScope scope;
    TRACE(kDetail, "_IN_");
    if (classId < 0 || classId >= TAV_CID_STRG_MAX) {
        return TRACED(-1, kFailure, "_OUT_ param(classID) Failure!!");
    }
    if (datInfo == nullptr) {
        return TRACED(-1, kFailure, "_OUT_ param(datInfo) Failure!!");
    }
    const uint64_t lastForeign = turnRules().lastForeign(begun);
    if (nonsrvMutexLock(cInfo, &instMutexSt.mutex) != 0) {
        return TRACED(-1, kFailure, "_OUT_ nonsrvMutexLock(instMutexSt) Failure!!");
    }
    const std::optional<int> ret = bringUpToDate(cInfo, classId, lastForeign);
    if (!ret) {
        mutexUnlock(&instMutexSt.mutex);
        return -1;
    }
    if (classId == TAV_CID_STRG_CONF && !strgTakeConfig()) {
        TRACE(kFailure, "_OUT_ param(instST[TAV_CID_STRG_CONF].datAdr) Failure!!");
        mutexUnlock(&instMutexSt.mutex);
        return -1;
    }
    if (!handOut(classId, *datInfo)) {
        mutexUnlock(&instMutexSt.mutex);
        return TRACED(-1, kFailure, "_OUT_ ret=[%d]", -1);
    }
    mutexUnlock(&instMutexSt.mutex);
    return TRACED(*ret, kDetail, "_OUT_ ret=[%d]", *ret);
}

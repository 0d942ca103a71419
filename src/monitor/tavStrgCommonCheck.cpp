// One monitoring pass: the fresh records become the store's, are published and saved.
#include "collect/tavStrgGetInfo.h"
#include "monitor/tavStrgCommonMonitor.h"
#include "provider/runtime/tavCommonHolders.h"
#include "provider/runtime/tavCommonMemory.h"
#include "store/records/tavStrgCommonArrays.h"

#include <cstring>

namespace {

void freeCollected(OwnedRecords &current, const char *function)
{
    for (int id = TAV_CID_STRG_CTRL; id < TAV_CID_STRG_MAX; ++id) {
        memfree(current.dat[id].datAdr, function);
    }
}

int refreshFromSegments(const CInfo *cInfo, const char *function)
{
    for (int id = 0; id < TAV_CID_STRG_MAX; ++id) {
        const int32_t shmNum = segmentNow(shmSt[id]).num;
        TRACE_AS(function, kDetail, "shmSt[%d].shmNum=[%d]", id, shmNum);
        if (shmNum < 1) {
            std::free(takeRecords(instSt[id]));
        } else if (setShmToInst(cInfo, &shmSt[id], &instSt[id]) != 0) {
            return TRACED_AS(function, -1, kFailure, "_OUT_ setShmToInst(%d) Failure!!", id);
        }
    }
    return 0;
}

// A class whose count changed: segment and area are made anew, and the area takes the store's place when it is
// complete, so that nobody sees the new count with anything but the new records. 0, or -1 with the store's records as
// they were.
int replaceClass(const CInfo *cInfo, int id, const DatInfo &fresh, const char *function)
{
    DatInfo next = {fresh.datSize, fresh.datNum, nullptr};
    if (reallocDatArea(cInfo, kShmKeyFileBase, id, &next, &shmSt[id]) != 0) {
        std::free(next.datAdr);
        return TRACED_AS(function, -1, kFailure, "reallocDatArea() Failure!!");
    }
    if (next.datAdr != nullptr) {
        std::memcpy(next.datAdr, fresh.datAdr, static_cast<size_t>(fresh.datNum) * fresh.datSize);
    }
    replaceRecords(instSt[id], next.datNum, next.datAdr, &shmSt[id]);
    return 0;
}

// The fresh records of one class become the store's. 0, or -1, traced.
int takeClass(const CInfo *cInfo, int id, OwnedRecords &current, const char *function)
{
    DatInfo &fresh = current.dat[id];
    const int32_t stored = recordsNow(instSt[id]).datNum;
    TRACE_AS(function, kDetail, "Idx=[%d] curNum[%d]<=>instSt[%d]", id, fresh.datNum, stored);
    if (fresh.datNum != stored) {
        if (replaceClass(cInfo, id, fresh, function) != 0) {
            freeCollected(current, function);
            return TRACED_AS(function, -1, kDetail, "_OUT_ ret=[%d]", -1);
        }
    } else if (fresh.datNum > 0 && !overwriteRecords(instSt[id], fresh.datNum, fresh.datAdr, &shmSt[id])) {
        return TRACED_AS(function, -1, kFailure, "_OUT_ param(instSt[i].datAdr) Failure!!");
    }
    memfree(fresh.datAdr, function);
    return 0;
}

int takeClasses(const CInfo *cInfo, OwnedRecords &current, const char *function)
{
    for (int id = TAV_CID_STRG_CTRL; id < TAV_CID_STRG_MAX; ++id) {
        if (takeClass(cInfo, id, current, function) != 0) {
            return -1;
        }
    }
    if (!strgTakeTotals()) {
        return TRACED_AS(function, -1, kFailure, "_OUT_ param(instSt[TAV_CID_STRG_TNUM].datAdr) Failure!!");
    }
    return 0;
}

int publish(const CInfo *cInfo, const char *function)
{
    for (int id = 0; id < TAV_CID_STRG_MAX; ++id) {
        if (recordsNow(instSt[id]).datNum > 0 && setInstToShm(cInfo, &instSt[id], &shmSt[id]) != 0) {
            return TRACED_AS(function, -1, kFailure, "_OUT_ setInstToShm(%d) Failure!!", id);
        }
    }
    return 0;
}

int save(const char *function)
{
    int error = 0;
    switch (strgSaveBinFile(instSt, error, function)) {
    case SaveResult::saved:
        return 0;
    case SaveResult::notOpened:
        return TRACED_AS(function, -1, kFailure, "_OUT_ fopen Failure!! err=[%d]", error);
    default:
        return TRACED_AS(function, -1, kFailure, "_OUT_ strgPutBinFile() Failure!!");
    }
}

} // namespace

int strgCheckConfigChange(const CInfo *cInfo)
{
    TRACE(kDetail, "_IN_");
    const std::lock_guard held(g_collectionLock);
    static_cast<void>(getServiceMode(cInfo)); // asked of the broker, if at all, before anything is touched
    if (refreshFromSegments(cInfo, __func__) != 0) {
        return -1;
    }
    TRACE(kDetail, "strgCheckConfigChange - before -");
    strgLogDumpInstanceDat(99, instSt);

    OwnedRecords current;
    TRACE(kDetail, "strgGetCurrentInfo()");
    if (strgGetCurrentInfo(gst_SmartMode, current.dat) != 0) {
        TRACE(kFailure, "strgGetCurrentInfo Failure!!");
        freeCollected(current, __func__);
        return TRACED(-1, kDetail, "_OUT_ ret=[%d]", -1);
    }
    if (recordsNow(instSt[TAV_CID_STRG_CONF]).datAdr == nullptr) {
        return TRACED(-1, kFailure, "_OUT_ param(instSt[TAV_CID_STRG_CONF].datAdr) Failure!!");
    }
    if (takeClasses(cInfo, current, __func__) != 0) {
        return -1;
    }
    TRACE(kDetail, "strgCheckConfigChange - after -");
    strgLogDumpInstanceDat(99, instSt);
    if (publish(cInfo, __func__) != 0 || save(__func__) != 0) {
        return -1;
    }
    return TRACED(0, kDetail, "_OUT_ ret=[%d]", 0);
}

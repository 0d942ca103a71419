// SPDX-License-Identifier: Apache-2.0
// One monitoring pass: the fresh records become the store's, are published and saved.
#include "collect/collector.h"
#include "monitor/disk_alerts.h"
#include "monitor/health.h"
#include "monitor/monitor.h"
#include "runtime/cancel.h"
#include "runtime/memory.h"
#include "store/arrays.h"

#include <cstring>
#include <optional>
#include <unistd.h>

using namespace tavstrg;

namespace {

constexpr useconds_t kTurnPause = 10000; // 10 ms

// Waits for another thread's pass. Can be cancelled, so that a stop does not take as long as all devices together.
void waitForTurn(std::unique_lock<std::mutex> &turn)
{
    while (!turn.try_lock()) {
        cancellationPoint();
        usleep(kTurnPause);
    }
}

int refreshFromSegments(const CInfo *cInfo)
{
    for (int id = 0; id < TAV_CID_STRG_MAX; ++id) {
        const int32_t shmNum = segmentNow(shmSt[id]).num;
        TRACE(kDetail, "shmSt[%d].shmNum=[%d]", id, shmNum);
        if (shmNum < 1) {
            freeRecords(takeRecordsWithoutSegment(instSt[id], shmSt[id]));
        } else if (setShmToInst(cInfo, &shmSt[id], &instSt[id]) != 0) {
            return TRACED(-1, kFailure, "_OUT_ setShmToInst(%d) Failure!!", id);
        }
    }
    return 0;
}

// Replaces segment and area of a class. The store gets the area when it is complete, so that no reader sees the new
// count without the new records. Returns 0, or -1 with the store's records unchanged.
int replaceClass(const CInfo *cInfo, int id, const DatInfo &fresh)
{
    DatInfo next = {fresh.datSize, fresh.datNum, nullptr};
    if (reallocDatArea(cInfo, kShmKeyFileBase, id, &next, &shmSt[id]) != 0) {
        freeRecords(next.datAdr);
        return TRACED(-1, kFailure, "reallocDatArea() Failure!!");
    }
    if (next.datAdr != nullptr) {
        std::memcpy(next.datAdr, fresh.datAdr, static_cast<size_t>(fresh.datNum) * fresh.datSize);
    }
    replaceRecords(instSt[id], next.datNum, next.datAdr, &shmSt[id]);
    return 0;
}

// Makes the fresh records of one class the store's. Returns 0, or -1, which is traced.
int takeClass(const CInfo *cInfo, int id, OwnedRecords &current, bool &changed)
{
    DatInfo &fresh = current.dat[id];
    const int32_t stored = recordsNow(instSt[id]).datNum;
    TRACE(kDetail, "Idx=[%d] curNum[%d]<=>instSt[%d]", id, fresh.datNum, stored);
    if (fresh.datNum != stored || isLost(shmSt[id])) {
        changed = changed || fresh.datNum != stored;
        if (replaceClass(cInfo, id, fresh) != 0) {
            freeCollected(current.dat);
            return TRACED(-1, kDetail, "_OUT_ ret=[%d]", -1);
        }
    } else if (fresh.datNum > 0 && !overwriteRecords(instSt[id], fresh.datNum, fresh.datAdr, &shmSt[id])) {
        return TRACED(-1, kFailure, "_OUT_ param(instSt[i].datAdr) Failure!!");
    }
    memfree(fresh.datAdr);
    return 0;
}

// Makes the fresh records the store's. Sets changed if the number of records of some class differs from the stored
// number; nothing else is a change of the configuration.
int takeClasses(const CInfo *cInfo, OwnedRecords &current, bool &changed)
{
    for (int id = TAV_CID_STRG_CTRL; id < TAV_CID_STRG_MAX; ++id) {
        if (takeClass(cInfo, id, current, changed) != 0) {
            return -1;
        }
    }
    if (!strgTakeTotals()) {
        return TRACED(-1, kFailure, "_OUT_ param(instSt[TAV_CID_STRG_TNUM].datAdr) Failure!!");
    }
    return 0;
}

int publish(const CInfo *cInfo)
{
    for (int id = 0; id < TAV_CID_STRG_MAX; ++id) {
        if (recordsNow(instSt[id]).datNum > 0 && setInstToShm(cInfo, &instSt[id], &shmSt[id]) != 0) {
            return TRACED(-1, kFailure, "_OUT_ setInstToShm(%d) Failure!!", id);
        }
    }
    return 0;
}

int save()
{
    int error = 0;
    switch (strgSaveBinFile(instSt, error)) {
    case SaveResult::saved:
        return 0;
    case SaveResult::notOpened:
        return TRACED(-1, kFailure, "_OUT_ fopen Failure!! err=[%d]", error);
    default:
        return TRACED(-1, kFailure, "_OUT_ strgPutBinFile() Failure!!");
    }
}

// What a pass does with the records of a collection. Returns 0, or -1, which is traced.
int takeCollection(const CInfo *cInfo, OwnedRecords &current, bool serviceMode)
{
    if (recordsNow(instSt[TAV_CID_STRG_CONF]).datAdr == nullptr) {
        return TRACED(-1, kFailure, "_OUT_ param(instSt[TAV_CID_STRG_CONF].datAdr) Failure!!");
    }
    // Decided against the stored records, before these are replaced.
    if (serviceMode && (strgAlertSmart(current.dat) != 0 || strgAlertLifeSpan(current.dat) != 0)) {
        return -1;
    }
    bool changed = false;
    if (takeClasses(cInfo, current, changed) != 0) {
        return -1;
    }
    TRACE(kDetail, "strgCheckConfigChange - after -");
    strgLogDumpInstanceDat(99, instSt);
    if (publish(cInfo) != 0 || save() != 0) {
        return -1;
    }
    // Only when segments and file have the new state, so that a client that reacts to the alert sees it.
    if (changed && serviceMode) {
        static_cast<void>(strgPutAlert(TAV_ALERTID_CONFIG_CHANGE, nullptr));
    }
    return TRACED(0, kDetail, "_OUT_ ret=[%d]", 0);
}

} // namespace

int strgCheckConfigChange(const CInfo *cInfo)
{
    const TraceScope scope;
    TRACE(kDetail, "_IN_");
    std::unique_lock held(g_collectionLock, std::defer_lock);
    waitForTurn(held);
    const bool serviceMode = getServiceMode(cInfo) == 1; // asked of the broker, if at all, before anything is touched
    if (refreshFromSegments(cInfo) != 0) {
        return -1;
    }
    TRACE(kDetail, "strgCheckConfigChange - before -");
    strgLogDumpInstanceDat(99, instSt);

    std::optional<DiskList> disks;
    if (serviceMode) {
        disks.emplace();
    }
    OwnedRecords current;
    TRACE(kDetail, "strgGetCurrentInfo()");
    if (strgGetCurrentInfo(gst_SmartMode, current.dat) != 0) {
        TRACE(kFailure, "strgGetCurrentInfo Failure!!");
        freeCollected(current.dat);
        return TRACED(-1, kDetail, "_OUT_ ret=[%d]", -1);
    }
    const int ret = takeCollection(cInfo, current, serviceMode);
    if (disks) {
        alertDisks(*disks); // also after a failure: a disk may have taken the file system of the saved state with it
    }
    return ret;
}

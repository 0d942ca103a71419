// SPDX-License-Identifier: Apache-2.0
// The store's state, and the two records that steer it.
#include "store/store.h"

#include "runtime/memory.h"
#include "runtime/trace.h"
#include "store/arrays.h"
#include "store/state_file_layout.h"

using namespace tavstrg;

DatInfo instSt[TAV_CID_STRG_MAX];
ShmInfo shmSt[TAV_CID_STRG_MAX];
RenewableMutex instMutexSt;
std::atomic<int32_t> gst_first{0};
std::atomic<int32_t> gst_SleepSec{60};
std::atomic<int32_t> gst_SmartMode{0};
std::shared_mutex tavstrg::g_recordsLock;
std::mutex tavstrg::g_collectionLock;

bool tavstrg::strgIsBuilt()
{
    return gst_first == kBuilt && instSt[TAV_CID_STRG_CONF].datAdr != nullptr; // the configuration is freed first
}

bool tavstrg::strgTakeConfig()
{
    StrgConfRec conf = {};
    if (!copyRecord(instSt[TAV_CID_STRG_CONF], 0, {reinterpret_cast<uint8_t *>(&conf), sizeof conf})) {
        return false;
    }
    gst_SleepSec = conf.MonitorCycle;
    gst_SmartMode = conf.HardDiskSmartMode;
    return true;
}

bool tavstrg::strgTakeTotals()
{
    // One section for all classes: the totals belong to the counts of one moment.
    return changeRecords<StrgTnumRec>(instSt[TAV_CID_STRG_TNUM], [](StrgTnumRec &totals) {
        for (int id = TAV_CID_STRG_CTRL; id < TAV_CID_STRG_MAX; ++id) {
            setTotal(totals, id, instSt[id].datNum);
        }
        shmSt[TAV_CID_STRG_TNUM].storeNewer = true;
    });
}

void tavstrg::strgDestroyLocks()
{
    for (int id = 0; id < TAV_CID_STRG_MAX; ++id) {
        TRACE(kDetail, "pthread_mutex_destroy(%d)", id);
        destroyMutex(shmSt[id].mutex);
    }
    TRACE(kDetail, "pthread_mutex_destroy(instMutexSt)");
    destroyMutex(instMutexSt);
}

int tavstrg::strgPublishAll(const CInfo *cInfo)
{
    for (int id = 0; id < TAV_CID_STRG_MAX; ++id) {
        if (recordsNow(instSt[id]).datNum <= 0) {
            continue;
        }
        TRACE(kDetail, "setInstToShm(%d)", id);
        if (setInstToShm(cInfo, &instSt[id], &shmSt[id]) != 0) {
            return TRACED(-1, kFailure, "_OUT_ setInstToShm(%d) Failure!!", id);
        }
    }
    return 0;
}

int strgSetInstance(const CInfo *cInfo)
{
    const TraceScope scope;
    TRACE(kDetail, "_IN_");
    if (nonsrvMutexLock(cInfo, &instMutexSt.mutex) != 0) {
        return TRACED(-1, kFailure, "_OUT_ nonsrvMutexLock(instMutexSt) Failure!!");
    }
    if (gst_first != kBuilt || !strgTakeConfig()) { // a store under construction has no configuration yet
        TRACE(kFailure, "_OUT_ param(instSt[TAV_CID_STRG_CONF].datAdr) Failure!!");
        mutexUnlock(&instMutexSt.mutex);
        return -1;
    }
    if (strgPublishAll(cInfo) != 0) {
        mutexUnlock(&instMutexSt.mutex);
        return -1;
    }
    int error = 0;
    const SaveResult result = strgSaveBinFile(instSt, error);
    if (result == SaveResult::notOpened) {
        TRACE(kFailure, "_OUT_ fopen Failure!! err=[%d]", error);
        mutexUnlock(&instMutexSt.mutex);
        return -1;
    }
    mutexUnlock(&instMutexSt.mutex);
    return result == SaveResult::saved ? TRACED(0, kDetail, "_OUT_")
                                       : TRACED(-1, kFailure, "_OUT_ strgPutBinFile() Failure!!");
}

int strgFreeInstance(const CInfo *cInfo)
{
    const TraceScope scope;
    const std::lock_guard held(g_collectionLock);
    TRACE(kDetail, "_IN_");
    int ret = 0;
    for (int id = 0; id < TAV_CID_STRG_MAX; ++id) {
        void *records = takeRecords(instSt[id]);
        memfree(records);
        const int32_t shmNum = segmentNow(shmSt[id]).num;
        TRACE(kDetail, "shmSt(%d).shmNum=[%d]", id, shmNum);
        if (shmNum <= 0) {
            continue;
        }
        TRACE(kDetail, "shmDestroy(%d)", id);
        if (shmDestroy(cInfo, &shmSt[id]) != 0) {
            TRACE(kFailure, "shmDestroy(%d) Failure!!", id);
            ret = -1;
        }
    }
    return TRACED(ret, kDetail, "_OUT_ ret=[%d]", ret);
}

// SPDX-License-Identifier: Apache-2.0
// The store's state, and the two records that steer it.
#include "runtime/trace.h"
#include "store/arrays.h"
#include "store/state_file_layout.h"

DatInfo instSt[TAV_CID_STRG_MAX];
ShmInfo shmSt[TAV_CID_STRG_MAX];
RenewableMutex instMutexSt;
std::atomic<int32_t> gst_first{0};
std::atomic<int32_t> gst_SleepSec{60};
std::atomic<int32_t> gst_SmartMode{0};
std::shared_mutex g_recordsLock;
std::mutex g_collectionLock;

bool strgIsBuilt()
{
    return gst_first != 1 && instSt[TAV_CID_STRG_CONF].datAdr != nullptr; // the configuration is freed first
}

bool strgTakeConfig()
{
    StrgConfRec conf = {};
    if (!copyRecord(instSt[TAV_CID_STRG_CONF], 0, {reinterpret_cast<uint8_t *>(&conf), sizeof conf})) {
        return false;
    }
    gst_SleepSec = conf.MonitorCycle;
    gst_SmartMode = conf.HardDiskSmartMode;
    return true;
}

bool strgTakeTotals()
{
    // One section for all classes: the totals belong to the counts of one moment.
    return changeRecords<StrgTnumRec>(instSt[TAV_CID_STRG_TNUM], [](StrgTnumRec &totals) {
        for (int id = TAV_CID_STRG_CTRL; id < TAV_CID_STRG_MAX; ++id) {
            setTotal(totals, id, instSt[id].datNum);
        }
        shmSt[TAV_CID_STRG_TNUM].storeNewer = true;
    });
}

void strgDestroyLocks()
{
    for (int id = 0; id < TAV_CID_STRG_MAX; ++id) {
        TRACE(kDetail, "pthread_mutex_destroy(%d)", id);
        destroyMutex(shmSt[id].mutex);
    }
    TRACE(kDetail, "pthread_mutex_destroy(instMutexSt)");
    destroyMutex(instMutexSt);
}

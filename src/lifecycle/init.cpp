// SPDX-License-Identifier: Apache-2.0
// Building the store, once, on the first request.
#include "collect/collector.h"
#include "collect/devices/last_values.h"
#include "endurance/endurance.h"
#include "lifecycle/access.h"
#include "lifecycle/gate.h"
#include "monitor/monitor.h"
#include "runtime/holders.h"
#include "runtime/memory.h"
#include "runtime/options.h"
#include "runtime/turns.h"
#include "store/arrays.h"
#include "store/segment_rules.h"

#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>

using namespace tavstrg;

namespace {

// Deliberate: the entry of TAV_CID_STRG_LIFE is left as it is; it starts zeroed with the process.
constexpr int kClearedEntries = TAV_CID_STRG_LIFE;

constexpr StrgConfRec kDefaultConfig = {60, 10, 3600, 60, 1, 0};

void clearDescriptors()
{
    for (int id = 0; id < kClearedEntries; ++id) {
        setSegment(shmSt[id], {0, 0, nullptr}, false);
    }
    const std::unique_lock held(g_recordsLock);
    strgInitDatInfo(instSt);
}

bool allocateSingle(int id)
{
    void *const record = memalloc(static_cast<int32_t>(kClasses[id].recordSize));
    replaceRecords(instSt[id], 1, record);
    return record != nullptr;
}

void initLocks()
{
    renewMutex(instMutexSt); // a stop or a cleanup may have destroyed it
    for (int id = 0; id < TAV_CID_STRG_MAX; ++id) {
        TRACE(kDetail, "pthread_mutex_init(%d)", id);
        renewMutex(shmSt[id].mutex);
    }
}

// Opens the saved-state file for reading and updating. Returns null if that fails; the file then counts as absent. A
// directory or a device in its place is neither read nor waited for. A symbolic link counts as absent too: opening its
// target, a tape or a watchdog, may have an effect, and the next save replaces the link anyway.
std::FILE *openSavedState()
{
    FileDesc file(::open(kSavedStateFile, O_RDWR | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
    struct stat info = {};
    if (!file || ::fstat(file.get(), &info) != 0 || !S_ISREG(info.st_mode)) {
        return nullptr;
    }
    std::FILE *const stream = ::fdopen(file.get(), "r+");
    if (stream != nullptr) {
        static_cast<void>(file.handOver());
    }
    return stream;
}

// Discards half-read records: the collection starts from an empty store.
void forgetSavedState()
{
    for (int id = TAV_CID_STRG_CTRL; id < TAV_CID_STRG_MAX; ++id) {
        freeRecords(takeRecords(instSt[id]));
    }
    changeRecords<StrgConfRec>(instSt[TAV_CID_STRG_CONF], [](StrgConfRec &conf) { conf = {}; });
    changeRecords<StrgTnumRec>(instSt[TAV_CID_STRG_TNUM], [](StrgTnumRec &totals) { totals = {}; });
}

bool loadSavedState()
{
    TRACE(kDetail, "fopen-check[%s]", kSavedStateFile);
    FilePtr file(openSavedState());
    TRACE(kDetail, "fp=[%p]", static_cast<void *>(file.get()));
    if (!file) {
        TRACE(kDetail, "strgGetBinFile() Not read");
        return false;
    }
    TRACE(kDetail, "strgGetBinFile()");
    const int ret = strgGetBinFile(file.get(), instSt);
    TRACE(kDetail, "fclose");
    static_cast<void>(file.close());
    if (ret != 0) {
        TRACE(kDetail, "strgGetBinFile() Not read");
        forgetSavedState();
        return false;
    }
    return true;
}

// The first collection fills separate descriptors, so that the store never shows a part of it.
int collectFirst()
{
    TRACE(kDetail, "strgGetCurrentInfo()");
    OwnedRecords collected;
    if (strgGetCurrentInfo(gst_SmartMode, collected.dat) != 0) {
        return TRACED(-1, kFailure, "_OUT_ strgGetCurrentInfo() Failure!!");
    }
    for (int id = TAV_CID_STRG_CTRL; id < TAV_CID_STRG_MAX; ++id) {
        const int32_t num = collected.dat[id].datNum;
        replaceRecords(instSt[id], num, takeRecords(collected.dat[id]));
    }
    changeRecords<StrgConfRec>(instSt[TAV_CID_STRG_CONF], [](StrgConfRec &conf) { conf = kDefaultConfig; });
    strgTakeTotals();
    // Deliberate: the first monitoring pass publishes these two, not the first collection.
    changeRecords<StrgLifeRec>(instSt[TAV_CID_STRG_LIFE], [](StrgLifeRec &life) { life.EnduranceRemaining = -1; });
    changeRecords<StrgHddRec>(instSt[TAV_CID_STRG_HDD], [](StrgHddRec &disk) { disk.SmartStatus = 0; });
    return 0;
}

int publishFirst(const CInfo *cInfo)
{
    segmentRules().clearWork(kShmKeyFileBase);
    TRACE(kDetail, "shmNew(%d,%s)", TAV_CID_STRG_LIFE, kShmKeyFileBase);
    if (shmNew(cInfo, TAV_CID_STRG_LIFE, kShmKeyFileBase, instSt, shmSt) != 0) {
        return TRACED(-1, kFailure, "_OUT_ shmNew() Failure!!");
    }
    return strgPublishAll(cInfo);
}

} // namespace

void tavstrg::releaseEarlierBuild()
{
    for (DatInfo &dat : instSt) {
        freeRecords(takeRecords(dat));
    }
    for (ShmInfo &shm : shmSt) {
        shmDiscard(shm);
    }
}

int tavstrg::strgInitStoreMutex()
{
    return renewMutex(instMutexSt);
}

int strgInitProvider(const CInfo *cInfo)
{
    const TraceScope scope;
    TRACE(kDetail, "_IN_ gst_first=[%d]", gst_first.load());
    int waits = 0;
    for (int32_t state = kBuilding; state != kNotBuilt;) {
        waits = waitWhileInitialising(waits, turnRules().waitsAfter);
        if (waits == kInitWaits) { // deliberate: even if the other one finished during the last wait
            return TRACED(-1, kFailure, "_OUT_ gst_first Failure!!");
        }
        state = kNotBuilt;
        if (!gst_first.compare_exchange_strong(state, kBuilding) && state == kBuilt) {
            return TRACED(0, kDetail, "_OUT_ Already Initialize.");
        }
    }
    TRACE(kDetail, "strgInitInstance()");
    const int ret = strgInitInstance(cInfo);
    if (ret != 0) {
        gst_first = kNotBuilt;
    }
    return TRACED(ret, kDetail, "_OUT_ ret=[%d]", ret);
}

int strgInitInstance(const CInfo *cInfo)
{
    const TraceScope scope;
    const std::lock_guard held(g_collectionLock);
    TRACE(kDetail, "_IN_");
    releaseEarlierBuild();
    clearDescriptors();
    if (!allocateSingle(TAV_CID_STRG_CONF)) {
        return TRACED(-1, kFailure, "_OUT_ StrgConf alloc Failure!!");
    }
    if (!allocateSingle(TAV_CID_STRG_TNUM)) {
        return TRACED(-1, kFailure, "_OUT_ StrgTnum alloc Failure!!");
    }
    initLocks();
    strgGetInfFile();
    takeOptions(); // a start from the saved state collects nothing
    g_lastValues.clear();
    if (!loadSavedState() && collectFirst() != 0) {
        return -1;
    }
    strgTakeConfig();
    TRACE(kDetail, "- to shm -");
    strgLogDumpInstanceDat(99, instSt);
    if (publishFirst(cInfo) != 0) {
        return -1;
    }
    int32_t building = kBuilding; // under the lock still, so that a stop that waits for it frees a built store
    gst_first.compare_exchange_strong(building, kBuilt);
    return TRACED(0, kDetail, "_OUT_");
}

// SPDX-License-Identifier: Apache-2.0
// The store's state, and what both sides of it need: set (publish and save), free, file, dump.
#pragma once

#include "store/segment.h"

#include <atomic>
#include <cstdio>
#include <mutex>
#include <shared_mutex>

extern DatInfo instSt[TAV_CID_STRG_MAX]; // the records behind every answer
extern tavstrg::ShmInfo shmSt[TAV_CID_STRG_MAX];
extern tavstrg::RenewableMutex instMutexSt; // the store lock; always taken before a segment's
extern std::atomic<int32_t> gst_first;      // kNotBuilt, kBuilding or kBuilt
extern std::atomic<int32_t> gst_SleepSec;   // monitoring cycle in seconds, initially 60
extern std::atomic<int32_t> gst_SmartMode;  // SMART mode of the next collection, initially 0

namespace tavstrg {

// States of the initialisation. Only in kBuilt are the store's records a state of the machine: a build that runs or
// failed leaves records of zeros.
constexpr int32_t kNotBuilt = 0;
constexpr int32_t kBuilding = 1;
constexpr int32_t kBuilt = 2;

constexpr char kSavedStateFile[] = "/opt/qlm/tavkit_sa/data/tavstrgsave.dat";
constexpr char kShmKeyFileBase[] = "/opt/qlm/tavkit_sa/work/tavstrgshm.key";

// Guards the record arrays. Held exclusively to replace, resize, free or overwrite an array, just around the copy or
// swap and never around device I/O; held shared to read records. Innermost of all locks: nothing else is locked while
// it is held exclusively.
extern std::shared_mutex g_recordsLock;

// Held during a monitoring pass, the building of the store and its freeing: one of these at a time. In service mode
// nothing else separates two requests that both find the thread gone. Taken after the store lock, before a segment's.
extern std::mutex g_collectionLock;

// Reads one class's records: holds g_recordsLock shared and sets the descriptor to what the store has now, so that it
// cannot point at an array that was replaced meanwhile. A store that is not built has nothing.
class RecordsReader {
public:
    RecordsReader(int classId, DatInfo &dat) : held_(g_recordsLock)
    {
        dat = gst_first == kBuilt ? instSt[classId] : DatInfo{instSt[classId].datSize, 0, nullptr};
    }

private:
    std::shared_lock<std::shared_mutex> held_;
};

} // namespace tavstrg

// Publishes the whole store to shared memory and saves it to the file; takes the store lock. Returns 0 or -1.
int strgSetInstance(const CInfo *cInfo);
// Frees every record array and destroys every segment, between passes; takes no store lock. Returns 0, or -1 if a
// destruction failed.
int strgFreeInstance(const CInfo *cInfo);

namespace tavstrg {

// Copies every class that has records into its segment. Returns 0, or -1 after the first failure. Traces each class and
// the failure in the caller's scope.
int strgPublishAll(const CInfo *cInfo);
// Destroys the segments' locks and the store lock, except a lock that is held at this moment. The next initialisation
// creates them again. Traces each in the caller's scope.
void strgDestroyLocks();

// Whether the store is built and no stop or cleanup has begun to free it. The caller holds g_recordsLock.
bool strgIsBuilt();

// Sets gst_SleepSec and gst_SmartMode from the configuration record; false when there is none.
bool strgTakeConfig();
// Writes the counts of classes 2 to 10 into the totals record, each cut to 16 bits; false when there is none.
bool strgTakeTotals();

enum class SaveResult {
    saved,
    notOpened,  // the file, or the one beside it, could not be opened
    notWritten, // writing, flushing, syncing or renaming failed
};

// Saves the eleven descriptors durably: written beside the file, synced, renamed over it, the directory synced. A file
// that has these bytes, owner and mode already stays as it is. After a failure the old file is still there. Traces the
// steps ("fopen[%s]", "strgPutBinFile()", "fclose") in the caller's scope; the caller traces the failure. error is the
// errno of a failed open.
SaveResult strgSaveBinFile(DatInfo *records, int &error);

} // namespace tavstrg

// Writes the whole state to an open stream; reads it, resizing the record areas. Each returns 0 or -1.
int strgPutBinFile(std::FILE *file, DatInfo *records);
int strgGetBinFile(std::FILE *file, DatInfo *records);
// Reads num records into one class's entry. Returns 0 or -1.
int getDatFromBinFile(std::FILE *file, int num, DatInfo *datInfo);

// Dumps records to the trace: 0..10 one class, 98 classes 2 to 10, 99 everything.
void strgLogDumpInstanceDat(int selector, DatInfo *datLog);

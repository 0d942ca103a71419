// SPDX-License-Identifier: Apache-2.0
// The record arrays and segment entries: every read and every change of one is done here, under g_recordsLock. Nothing
// here traces or does I/O while it holds the lock, so the lock is held no longer than a copy takes.
#pragma once

#include "store/store.h"

#include <algorithm>
#include <mutex>
#include <span>

namespace tavstrg {

constexpr size_t kMaxRecordSize =
    std::max({sizeof(StrgConfRec), sizeof(StrgTnumRec), sizeof(StrgCtrlRec), sizeof(StrgScsiRec), sizeof(StrgIdeRec),
              sizeof(StrgHddRec), sizeof(StrgDevRec), sizeof(StrgLifeRec)});

// A descriptor as it is at this moment. Never read its array through this copy: it may be gone a moment later.
DatInfo recordsNow(const DatInfo &dat);
// Records that a descriptor holds: none without an array or with a negative count. The caller holds g_recordsLock.
int32_t recordsHeld(const DatInfo &dat);
// Copies record i into out, which must have room for it. Returns false if there is no such record.
bool copyRecord(const DatInfo &dat, int32_t i, std::span<uint8_t> out);

// Gives a descriptor another count and array, which it owns from then on, and frees the old array, which is traced.
// With a segment, its records are older than the store's from then on.
void replaceRecords(DatInfo &dat, int32_t num, void *adr, ShmInfo *shm = nullptr);
// Takes the array out of a descriptor and sets its count to 0. The caller frees it.
void *takeRecords(DatInfo &dat);
// Frees an array that was taken out of a descriptor, with its trace line; nothing where there was none.
void freeRecords(void *records);
// The same, only if at this moment the class has no segment, is not getting another one and has not lost it; else null.
// A pass may have made one, with the store's records for it, since the caller looked.
void *takeRecordsWithoutSegment(DatInfo &dat, const ShmInfo &shm);
// Copies num records over the existing ones. Returns false, with nothing changed, if their number differs.
bool overwriteRecords(DatInfo &dat, int32_t num, const void *records, ShmInfo *shm = nullptr);
// Overwrites record i. Returns false if there is no such record.
bool overwriteRecord(DatInfo &dat, int32_t i, std::span<const uint8_t> record);

// Calls change for every record of a class; change does nothing but write to it. Returns false if there is none.
template <class Rec, class Change> bool changeRecords(DatInfo &dat, Change change)
{
    const std::unique_lock held(g_recordsLock);
    const int32_t num = recordsHeld(dat);
    for (Rec &record : std::span(static_cast<Rec *>(dat.datAdr), static_cast<size_t>(num))) {
        change(record);
    }
    return num > 0;
}

// Terminates every text within its field, in records that come from outside. Records of a class without texts are not
// changed.
void terminateTexts(uint32_t recordSize, void *records, int32_t num);

// A class's segment entry without its lock.
struct Segment {
    int32_t id;
    int32_t num;
    void *adr;
};

Segment segmentNow(const ShmInfo &shm);
// storeNewer: the segment was made for records that it was not given yet.
void setSegment(ShmInfo &shm, Segment segment, bool storeNewer);
// Notes that a class with records has no segment because none could be made; until setSegment. Its records stay in the
// store, which is not saved: it may hold the records of some classes from before a pass and of others from after.
void markLost(ShmInfo &shm);
bool isLost(const ShmInfo &shm);
// Empties the entry and returns what it held, so that removing a segment cannot empty an entry that got a new one.
Segment takeSegment(ShmInfo &shm);
// Marks the segment as being replaced while this object exists.
class SegmentExchange {
public:
    explicit SegmentExchange(ShmInfo &shm);
    ~SegmentExchange();
    SegmentExchange(const SegmentExchange &) = delete;
    SegmentExchange &operator=(const SegmentExchange &) = delete;

private:
    ShmInfo &shm_;
};
// Notes where the segment is attached.
void setAttachment(ShmInfo &shm, void *adr);

// Eleven descriptors that own their arrays: a collection that is not part of the store yet.
struct OwnedRecords {
    DatInfo dat[TAV_CID_STRG_MAX];

    OwnedRecords() { strgInitDatInfo(dat); }
    ~OwnedRecords()
    {
        for (const DatInfo &entry : dat) {
            std::free(entry.datAdr);
        }
    }
    OwnedRecords(const OwnedRecords &) = delete;
    OwnedRecords &operator=(const OwnedRecords &) = delete;
};

} // namespace tavstrg

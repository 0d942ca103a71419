// SPDX-License-Identifier: Apache-2.0
// Segments' lives: created for the store's counts, recreated when a count changes, removed when the store is freed.
#include "runtime/memory.h"
#include "store/arrays.h"
#include "store/segment_lock.h"

#include <cerrno>
#include <climits>
#include <cstring>
#include <optional>
#include <sys/ipc.h>
#include <sys/shm.h>

using namespace tavstrg;

namespace {

constexpr Segment kNoSegment = {-1, 0, nullptr};

// Bytes of all records; -1, which every callee refuses, if they exceed an int.
int bytesOf(const DatInfo &dat)
{
    const int64_t bytes = static_cast<int64_t>(dat.datSize) * dat.datNum;
    return bytes > INT_MAX ? -1 : static_cast<int>(bytes);
}

void traceEntry(const ShmInfo &shm, int cid)
{
    const Segment now = segmentNow(shm);
    TRACE(kDetail, "%d: shmId=[%d],shmNum=[%d],shmAdr=[%p]", cid, now.id, now.num, now.adr);
}

// Creates the segment of a class that has records, unless the entry has a usable one of that count. Returns 0 or -1.
// Five parameters: those of shmCreate, with the class's two entries.
int newSegment(const CInfo *cInfo, const char *keyFileBase, int cid, const DatInfo &ins, ShmInfo &shm)
{
    const Segment before = segmentNow(shm);
    if (before.num == ins.datNum && before.adr != nullptr) {
        return 0;
    }
    const int size = bytesOf(ins);
    TRACE(kDetail, "shmCreate(%s,%d,%d)", keyFileBase, cid, size);
    const int shmId = shmCreate(cInfo, &shm, keyFileBase, cid, size);
    if (shmId == -1) {
        const int error = errno;
        return TRACED(-1, kFailure, "shmCreate(%d) Failure!! errno=[%d]", cid, error);
    }
    shmDiscard(shm); // one of the same count that was never attached
    setSegment(shm, {shmId, ins.datNum, nullptr}, true);
    return 0;
}

// Five parameters, as above.
int newEntry(const CInfo *cInfo, const char *keyFileBase, int cid, const DatInfo &ins, ShmInfo &shm)
{
    const Segment before = segmentNow(shm);
    TRACE(kDetail, "%d: shmAdr=[%p] shmNum=[%d] instNum=[%d]", cid, before.adr, before.num, ins.datNum);
    if (before.num != 0 && before.num != ins.datNum) {
        TRACE(kDetail, "shmDestroy(%d)", cid);
        if (shmDestroy(cInfo, &shm) != 0) {
            const int error = errno;
            return TRACED(-1, kFailure, "shmDestroy(%d) Failure!! errno=[%d]", cid, error);
        }
    }
    if (ins.datNum == 0) {
        setSegment(shm, kNoSegment, false);
    } else if (newSegment(cInfo, keyFileBase, cid, ins, shm) != 0) {
        return -1;
    }
    traceEntry(shm, cid);
    return 0;
}

// Resizes the record area to size bytes; oldNum records are kept, the rest is zero. Returns 0, or -1 with the area
// gone.
int resizeArea(DatInfo &ins, int32_t oldNum, int size)
{
    const DatInfo before = recordsNow(ins);
    if (before.datAdr == nullptr) { // nothing that anybody could be reading: no lock while memory is sought
        void *const area = memrealloc(nullptr, size);
        if (area != nullptr) {
            std::memset(area, 0, static_cast<size_t>(size));
        }
        replaceRecords(ins, area == nullptr ? 0 : before.datNum, area);
        return area == nullptr ? -1 : 0;
    }
    // Taken out of the descriptor while it is resized, so that no thread reads it: memrealloc traces, so no lock is
    // held.
    void *const area = memrealloc(takeRecords(ins), size);
    if (area == nullptr) {
        return -1;
    }
    const auto whole = static_cast<size_t>(size);
    const size_t kept = std::min(static_cast<size_t>(std::max(oldNum, 0)) * ins.datSize, whole);
    std::memset(static_cast<uint8_t *>(area) + kept, 0, whole - kept);
    replaceRecords(ins, before.datNum, area);
    return 0;
}

} // namespace

int shmDestroy(const CInfo *cInfo, ShmInfo *shmInfo)
{
    const TraceScope scope;
    TRACE(kDetail, "_IN_");
    if (shmInfo == nullptr) {
        return TRACED(-1, kFailure, "_OUT_ param(shmInfo) Failure!!");
    }
    if (cInfo == nullptr) {
        return TRACED(-1, kFailure, "_OUT_ param(cInfo) Failure!!");
    }
    if (segmentNow(*shmInfo).id <= 0) {
        return TRACED(-1, kFailure, "_OUT_ param(shmId) Failure!!");
    }
    SegmentLock lock(cInfo, *shmInfo);
    if (lock.failed()) {
        TRACE(kFailure, "thmutex_lock Failure!!");
    }
    if (::shmctl(takeSegment(*shmInfo).id, IPC_RMID, nullptr) == -1) {
        const int error = errno;
        TRACE(kFailure, "shmctl Failure!! errno=[%d]", error);
    }
    if (lock.unlock() != 0) {
        TRACE(kFailure, "thmutex_unlock Failure!!");
    }
    return TRACED(0, kDetail, "_OUT_ ret=[%d]", 0);
}

void tavstrg::shmDiscard(ShmInfo &shmInfo)
{
    const Segment now = segmentNow(shmInfo);
    if (now.id > 0 && now.num > 0) {
        ::shmctl(takeSegment(shmInfo).id, IPC_RMID, nullptr);
    }
}

int shmNew(const CInfo *cInfo, int max, const char *keyFileBase, DatInfo *ins, ShmInfo *shm)
{
    const TraceScope scope;
    TRACE(kDetail, "_IN_");
    if (cInfo == nullptr) {
        return TRACED(-1, kFailure, "_OUT_ param(cInfo) Failure!!");
    }
    if (max < 1 || max >= TAV_CID_STRG_MAX) {
        return TRACED(-1, kFailure, "_OUT_ param(max) Failure!!");
    }
    if (keyFileBase == nullptr) {
        return TRACED(-1, kFailure, "_OUT_ param(fnm) Failure!!");
    }
    if (ins == nullptr) {
        return TRACED(-1, kFailure, "_OUT_ param(ins) Failure!!");
    }
    if (shm == nullptr) {
        return TRACED(-1, kFailure, "_OUT_ param(shm) Failure!!");
    }
    for (int id = 0; id <= max; ++id) {
        if (newEntry(cInfo, keyFileBase, id, recordsNow(ins[id]), shm[id]) == 0) {
            continue;
        }
        for (ShmInfo &entry : std::span(shm, static_cast<size_t>(max) + 1)) {
            shmDestroy(cInfo, &entry);
        }
        return TRACED(-1, kFailure, "_OUT_ [TAV_FALSE]");
    }
    return TRACED(0, kDetail, "_OUT_ ret=[%d]", 0);
}

int reallocDatArea(const CInfo *cInfo, const char *keyFileBase, int cid, DatInfo *ins, ShmInfo *shm)
{
    const TraceScope scope;
    TRACE(kDetail, "_IN_");
    if (cInfo == nullptr) {
        return TRACED(-1, kFailure, "_OUT_ param(cInfo) Failure!!");
    }
    if (keyFileBase == nullptr) {
        return TRACED(-1, kFailure, "_OUT_ param(shmKeyFnm) Failure!!");
    }
    if (cid < 0) {
        return TRACED(-1, kFailure, "_OUT_ param(cid) Failure!!");
    }
    if (ins == nullptr) {
        return TRACED(-1, kFailure, "_OUT_ param(ins) Failure!!");
    }
    if (shm == nullptr) {
        return TRACED(-1, kFailure, "_OUT_ param(shm) Failure!!");
    }
    const DatInfo wanted = recordsNow(*ins);
    const int32_t oldNum = segmentNow(*shm).num;
    TRACE(kDetail, "cid=[%d] insNum=[%d] shmNum=[%d]", cid, wanted.datNum, oldNum);
    std::optional<SegmentExchange> exchange; // a read in between is answered from the store
    if (wanted.datNum > 0) {
        exchange.emplace(*shm);
    }
    if (oldNum > 0 && shmDestroy(cInfo, shm) != 0) {
        const int error = errno;
        return TRACED(-1, kFailure, "_OUT_ shmDestroy() Failure!! errno=[%d]", error);
    }
    if (wanted.datNum <= 0) {
        if (isLost(*shm)) {
            setSegment(*shm, kNoSegment, false); // a class without records needs none
        }
        return TRACED(0, kDetail, "_OUT_ ret=[%d]", 0);
    }
    const int size = bytesOf(wanted);
    const int shmId = shmCreate(cInfo, shm, keyFileBase, cid, size);
    if (shmId == -1) {
        const int error = errno;
        markLost(*shm); // the classes before this one may have been replaced already
        return TRACED(-1, kFailure, "_OUT_ shmCreate() Failure!! errno=[%d]", error);
    }
    setSegment(*shm, {shmId, wanted.datNum, nullptr}, true);
    if (resizeArea(*ins, oldNum, size) != 0) {
        markLost(*shm);
        return TRACED(-1, kFailure, "_OUT_ memrealloc() Failure!!");
    }
    return TRACED(0, kDetail, "_OUT_ ret=[%d]", 0);
}

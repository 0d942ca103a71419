// SPDX-License-Identifier: Apache-2.0
// Copying records between the store and a segment, which is attached for the length of one copy.
#include "runtime/trace.h"
#include "store/arrays.h"
#include "store/segment_lock.h"

#include <cerrno>
#include <cstring>
#include <sys/ipc.h>
#include <sys/mman.h>
#include <sys/shm.h>
#include <utility>

using namespace tavstrg;

namespace {

void *const kNotAttached = reinterpret_cast<void *>(-1); // shmat(2)

class Attachment {
public:
    // An identifier of 0, which an entry has before its first segment, may be another program's segment.
    explicit Attachment(int shmId) : adr_(shmId > 0 ? ::shmat(shmId, nullptr, 0) : kNotAttached)
    {
        error_ = shmId > 0 ? errno : EINVAL;
    }
    ~Attachment() { static_cast<void>(detach()); }
    Attachment(const Attachment &) = delete;
    Attachment &operator=(const Attachment &) = delete;

    explicit operator bool() const { return adr_ != kNotAttached; }
    void *get() const { return adr_; }
    int error() const { return error_; }
    int detach()
    {
        void *const adr = std::exchange(adr_, kNotAttached);
        return adr == kNotAttached ? 0 : ::shmdt(adr);
    }

private:
    void *adr_;
    int error_ = 0;
};

enum class Direction { toSegment, toStore };

constexpr size_t kManyBytes = 65536; // 16 pages of 4 KiB: below, mapping them at once saves nothing

// Maps a large segment's pages at once. Otherwise the copy has a page fault for each, which takes several times as long
// as the copy itself. Kernels before 5.14 refuse this, which does no harm.
void mapPages(void *adr, size_t bytes, Direction direction)
{
    if (bytes >= kManyBytes) {
        static_cast<void>(
            ::madvise(adr, bytes, direction == Direction::toSegment ? MADV_POPULATE_WRITE : MADV_POPULATE_READ));
    }
}

// Bytes that both hold: the segment itself, and what its entry and the store's descriptor say. The caller holds
// g_recordsLock.
size_t commonBytes(const DatInfo &ins, const ShmInfo &shm, size_t segmentBytes)
{
    const auto num = static_cast<size_t>(std::min(recordsHeld(ins), std::max(shm.shmNum, 0)));
    return std::min(num * ins.datSize, segmentBytes);
}

void copyToSegment(const DatInfo &ins, ShmInfo &shm, void *adr, size_t segmentBytes)
{
    // Exclusively: no newer record can come between the copy and the note that the segment has the newest.
    const std::unique_lock held(g_recordsLock);
    if (const size_t bytes = commonBytes(ins, shm, segmentBytes); bytes > 0) {
        std::memcpy(adr, ins.datAdr, bytes);
        shm.storeNewer = false;
    }
}

void copyToStore(DatInfo &ins, const ShmInfo &shm, const void *adr, size_t segmentBytes)
{
    const std::unique_lock held(g_recordsLock);
    const size_t bytes = commonBytes(ins, shm, segmentBytes);
    if (bytes == 0 || shm.storeNewer) {
        return;
    }
    std::memcpy(ins.datAdr, adr, bytes);
    terminateTexts(ins.datSize, ins.datAdr, static_cast<int32_t>(bytes / ins.datSize));
}

void traceCopy(Direction direction, const DatInfo &ins, const Segment &shm)
{
    const int size = static_cast<int>(ins.datSize);
    if (direction == Direction::toSegment) {
        TRACE(kDetail, "memcpy(ins.Adr=[%p]=>shm.Adr=[%p],ins.Size=[%d]*ins.Num=[%d])", ins.datAdr, shm.adr, size,
              ins.datNum);
    } else {
        TRACE(kDetail, "memcpy(shm.Adr=[%p]=>ins.Adr=[%p],ins.Size=[%d]*shm.Num=[%d])", shm.adr, ins.datAdr, size,
              shm.num);
    }
}

void copyAttached(Direction direction, DatInfo &ins, ShmInfo &shm)
{
    const int shmId = segmentNow(shm).id;
    Attachment attachment(shmId);
    if (!attachment) {
        TRACE(kFailure, "_OUT_ shmat Failure!! errno=[%d]", attachment.error());
        return;
    }
    setAttachment(shm, attachment.get());
    struct shmid_ds info = {};
    if (::shmctl(shmId, IPC_STAT, &info) == -1) {
        const int error = errno;
        TRACE(kFailure, "shmctl Failure!! errno=[%d]", error);
        info.shm_segsz = 0; // unknown: nothing is copied
    }
    traceCopy(direction, recordsNow(ins), segmentNow(shm));
    mapPages(attachment.get(), info.shm_segsz, direction);
    if (direction == Direction::toSegment) {
        copyToSegment(ins, shm, attachment.get(), info.shm_segsz);
    } else {
        copyToStore(ins, shm, attachment.get(), info.shm_segsz);
    }
    if (attachment.detach() != 0) {
        const int error = errno;
        TRACE(kFailure, "_OUT_ shmdt Failure!! errno=[%d]", error);
    }
}

int copyLocked(const CInfo *cInfo, Direction direction, DatInfo &ins, ShmInfo &shm)
{
    SegmentLock lock(cInfo, shm);
    if (lock.failed()) {
        return TRACED(-1, kFailure, "_OUT_ thmutex_lock Failure!!");
    }
    copyAttached(direction, ins, shm); // its failures are traced only
    if (lock.unlock() != 0) {
        return TRACED(-1, kFailure, "_OUT_ thmutex_unlock Failure!!");
    }
    return TRACED(0, kDetail, "_OUT_ ret=[%d]", 0);
}

} // namespace

int setInstToShm(const CInfo *cInfo, DatInfo *ins, ShmInfo *shm)
{
    const TraceScope scope;
    TRACE(kDetail, "_IN_");
    if (cInfo == nullptr) {
        return TRACED(-1, kFailure, "_OUT_ param(cInfo) Failure!!");
    }
    if (ins == nullptr) {
        return TRACED(-1, kFailure, "_OUT_ param(ins) Failure!!");
    }
    if (shm == nullptr) {
        return TRACED(-1, kFailure, "_OUT_ param(shm) Failure!!");
    }
    return copyLocked(cInfo, Direction::toSegment, *ins, *shm);
}

int setShmToInst(const CInfo *cInfo, ShmInfo *shm, DatInfo *ins)
{
    const TraceScope scope;
    TRACE(kDetail, "_IN_");
    if (cInfo == nullptr) {
        return TRACED(-1, kFailure, "_OUT_ param(cInfo) Failure!!");
    }
    if (shm == nullptr) {
        return TRACED(-1, kFailure, "_OUT_ param(shm) Failure!!");
    }
    if (ins == nullptr) {
        return TRACED(-1, kFailure, "_OUT_ param(ins) Failure!!");
    }
    return copyLocked(cInfo, Direction::toStore, *ins, *shm);
}

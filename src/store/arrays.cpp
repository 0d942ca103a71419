// SPDX-License-Identifier: Apache-2.0
#include "store/arrays.h"

#include "runtime/memory.h"

#include <cstring>
#include <utility>

using namespace tavstrg;

namespace {

uint8_t *recordAt(const DatInfo &dat, int32_t i)
{
    return static_cast<uint8_t *>(dat.datAdr) + static_cast<size_t>(i) * dat.datSize;
}

} // namespace

DatInfo tavstrg::recordsNow(const DatInfo &dat)
{
    const std::shared_lock held(g_recordsLock);
    return dat;
}

int32_t tavstrg::recordsHeld(const DatInfo &dat)
{
    return dat.datAdr == nullptr ? 0 : std::max(dat.datNum, 0);
}

bool tavstrg::copyRecord(const DatInfo &dat, int32_t i, std::span<uint8_t> out)
{
    const std::shared_lock held(g_recordsLock);
    if (i < 0 || i >= recordsHeld(dat) || dat.datSize > out.size()) {
        return false;
    }
    std::memcpy(out.data(), recordAt(dat, i), dat.datSize);
    return true;
}

void tavstrg::replaceRecords(DatInfo &dat, int32_t num, void *adr, ShmInfo *shm)
{
    void *old = nullptr;
    {
        const std::unique_lock held(g_recordsLock);
        dat.datNum = num;
        old = std::exchange(dat.datAdr, adr);
        if (shm != nullptr) {
            shm->storeNewer = true;
        }
    }
    freeRecords(old);
}

void tavstrg::freeRecords(void *records)
{
    if (records != nullptr) {
        memfree(records);
    }
}

void *tavstrg::takeRecords(DatInfo &dat)
{
    const std::unique_lock held(g_recordsLock);
    dat.datNum = 0;
    return std::exchange(dat.datAdr, nullptr);
}

void *tavstrg::takeRecordsWithoutSegment(DatInfo &dat, const ShmInfo &shm)
{
    const std::unique_lock held(g_recordsLock);
    if (shm.shmNum > 0 || shm.inBetween || shm.lost) {
        return nullptr;
    }
    dat.datNum = 0;
    return std::exchange(dat.datAdr, nullptr);
}

bool tavstrg::overwriteRecords(DatInfo &dat, int32_t num, const void *records, ShmInfo *shm)
{
    const std::unique_lock held(g_recordsLock);
    if (dat.datAdr == nullptr || dat.datNum != num || num <= 0) {
        return false;
    }
    std::memcpy(dat.datAdr, records, static_cast<size_t>(num) * dat.datSize);
    if (shm != nullptr) {
        shm->storeNewer = true;
    }
    return true;
}

bool tavstrg::overwriteRecord(DatInfo &dat, int32_t i, std::span<const uint8_t> record)
{
    const std::unique_lock held(g_recordsLock);
    if (i < 0 || i >= recordsHeld(dat) || record.size() != dat.datSize) {
        return false;
    }
    std::memcpy(recordAt(dat, i), record.data(), record.size());
    return true;
}

void tavstrg::terminateTexts(uint32_t recordSize, void *records, int32_t num)
{
    // The records with texts differ in size; the classes that share a size have none.
    const auto *const desc = std::ranges::find(kClasses, recordSize, &ClassDesc::recordSize);
    if (desc == std::end(kClasses)) {
        return;
    }
    // Field by field: a class may have thousands of records.
    for (const FieldDesc &field : desc->fields) {
        if (field.type == CMPI_chars && !field.key) {
            char *const last = static_cast<char *>(records) + field.offset + field.size - 1; // of the first record
            for (int32_t i = 0; i < num; ++i) {
                last[static_cast<size_t>(i) * recordSize] = '\0';
            }
        }
    }
}

Segment tavstrg::segmentNow(const ShmInfo &shm)
{
    const std::shared_lock held(g_recordsLock);
    return {shm.shmId, shm.shmNum, shm.shmAdr};
}

void tavstrg::setSegment(ShmInfo &shm, Segment segment, bool storeNewer)
{
    const std::unique_lock held(g_recordsLock);
    shm.shmId = segment.id;
    shm.shmNum = segment.num;
    shm.shmAdr = segment.adr;
    shm.storeNewer = storeNewer;
    shm.lost = false;
}

void tavstrg::markLost(ShmInfo &shm)
{
    const std::unique_lock held(g_recordsLock);
    shm.lost = true;
}

bool tavstrg::isLost(const ShmInfo &shm)
{
    const std::shared_lock held(g_recordsLock);
    return shm.lost;
}

Segment tavstrg::takeSegment(ShmInfo &shm)
{
    const std::unique_lock held(g_recordsLock);
    shm.storeNewer = false;
    return {std::exchange(shm.shmId, -1), std::exchange(shm.shmNum, 0), std::exchange(shm.shmAdr, nullptr)};
}

SegmentExchange::SegmentExchange(ShmInfo &shm) : shm_(shm)
{
    const std::unique_lock held(g_recordsLock);
    shm_.inBetween = true;
}

SegmentExchange::~SegmentExchange()
{
    const std::unique_lock held(g_recordsLock);
    shm_.inBetween = false;
}

void tavstrg::setAttachment(ShmInfo &shm, void *adr)
{
    const std::unique_lock held(g_recordsLock);
    shm.shmAdr = adr;
}

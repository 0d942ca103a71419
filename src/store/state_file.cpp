// SPDX-License-Identifier: Apache-2.0
// The saved-state file over an open stream.
#include "runtime/holders.h"
#include "runtime/memory.h"
#include "store/arrays.h"
#include "store/state_file_layout.h"

#include <cerrno>
#include <cstring>

using namespace tavstrg;

namespace {

constexpr int kComposeAttempts = 3; // the records change between sizing and composing at most once in a monitoring pass

// Bytes from the stream's position to its end; -1 if unknown.
int64_t bytesLeft(std::FILE *file)
{
    const off_t here = ::ftello(file);
    if (here < 0 || ::fseeko(file, 0, SEEK_END) != 0) {
        return -1;
    }
    const off_t end = ::ftello(file);
    return ::fseeko(file, here, SEEK_SET) != 0 || end < here ? -1 : end - here;
}

// Reads size bytes. Returns 0, or -1 with errno, which is 0 at the end of the stream, in error.
int readBytes(std::FILE *file, void *out, size_t size, int &error)
{
    errno = 0;
    const size_t got = std::fread(out, 1, size, file);
    error = errno;
    return got == size ? 0 : -1;
}

// As many records as are there already: each is read aside and then put in place whole.
int readOver(std::FILE *file, int num, DatInfo *datInfo, int &error)
{
    uint8_t record[kMaxRecordSize];
    const uint32_t size = datInfo->datSize;
    for (int i = 0; i < num; ++i) {
        if (size > sizeof record || readBytes(file, record, size, error) != 0) {
            return -1;
        }
        terminateTexts(size, record, 1);
        overwriteRecord(*datInfo, i, {record, size});
    }
    return 0;
}

// The size of the file for what the store has at this moment.
size_t sizeNow(const DatInfo *records)
{
    const std::shared_lock held(g_recordsLock);
    return stateFileSize(records);
}

// Whether the store is a state of the machine: built, and no class has lost its segment. The caller holds
// g_recordsLock.
bool isWhole()
{
    return gst_first == kBuilt && std::ranges::none_of(shmSt, &ShmInfo::lost);
}

// A store that was freed meanwhile must not be saved: a file without configuration and totals cannot be read. A store
// that is not built has those, but with zeros in them.
bool compose(const DatInfo *records, std::span<uint8_t> out)
{
    const std::shared_lock held(g_recordsLock);
    return (records != instSt || isWhole()) && recordsHeld(records[TAV_CID_STRG_CONF]) == 1 &&
           recordsHeld(records[TAV_CID_STRG_TNUM]) == 1 && composeStateFile(records, out);
}

void traceSizes(const DatInfo *records, size_t size)
{
    for (int id = 0; id < TAV_CID_STRG_MAX; ++id) {
        const DatInfo now = recordsNow(records[id]);
        if (now.datNum > 0) {
            TRACE(kDetail, "datCur[%d] Size=[%d]*Num=[%d]", id, static_cast<int>(now.datSize), now.datNum);
        }
    }
    TRACE(kDetail, "outputSize=[%d]", static_cast<int>(size));
}

// Returns the whole file in a block that the caller frees; null if memory is short or the store must not be saved.
uint8_t *composedFile(const DatInfo *records, size_t &size)
{
    for (int attempt = 0; attempt < kComposeAttempts; ++attempt) {
        size = sizeNow(records);
        traceSizes(records, size);
        HeapBlock<uint8_t> output(size > INT32_MAX ? nullptr : memalloc(static_cast<int32_t>(size)));
        if (!output) {
            return nullptr;
        }
        if (compose(records, {output.get(), size})) {
            return output.handOver();
        }
    }
    return nullptr;
}

// The totals of the old version, one record of 16 bytes, widened to today's.
int getOldTotals(std::FILE *file, DatInfo *totals)
{
    HeapBlock<uint8_t> area(memalloc(sizeof(StrgTnumRec)));
    if (!area) {
        return TRACED(-1, kFailure, "_OUT_ datstrgTnum alloc Failure!!");
    }
    DatInfo old = {kOldTotalsSize, 0, nullptr};
    const int ret = getDatFromBinFile(file, 1, &old);
    if (ret == 0) {
        std::memcpy(area.get(), old.datAdr, kOldTotalsSize); // LifeSpanTotalNumber stays 0
        replaceRecords(*totals, 1, area.handOver());
    }
    memfree(old.datAdr);
    return ret == 0 ? 0 : TRACED(-1, kFailure, "_OUT_ getDatFromBinFile[TNUM] Failure!!");
}

int getTotals(std::FILE *file, FileVersion version, DatInfo *totals)
{
    switch (version) {
    case FileVersion::current:
        return getDatFromBinFile(file, 1, totals) == 0
                   ? 0
                   : TRACED(-1, kFailure, "_OUT_ getDatFromBinFile[TNUM] Failure!!");
    case FileVersion::old:
        return getOldTotals(file, totals);
    default:
        return TRACED(-1, kFailure, "_OUT_ DatfileVer Failure!!");
    }
}

struct Block {
    int classId;
    const char *name;
};
constexpr Block kBlocks[] = {
    {TAV_CID_STRG_CTRL, "CTRL"}, {TAV_CID_STRG_SCSI, "SCSI"},   {TAV_CID_STRG_IDE, "IDE"},
    {TAV_CID_STRG_HDD, "HDD"},   {TAV_CID_STRG_CDROM, "CDROM"}, {TAV_CID_STRG_TAPE, "TAPE"},
    {TAV_CID_STRG_OPTM, "OPTM"}, {TAV_CID_STRG_MISC, "MISC"},   {TAV_CID_STRG_LIFE, "LIFE"},
};

int getBlocks(std::FILE *file, FileVersion version, DatInfo *records)
{
    StrgTnumRec totals = {};
    copyRecord(records[TAV_CID_STRG_TNUM], 0, {reinterpret_cast<uint8_t *>(&totals), sizeof totals});
    for (const Block &block : kBlocks) {
        if (block.classId == TAV_CID_STRG_LIFE && version == FileVersion::old) {
            break; // the old version has no such block, and the entry stays as it was
        }
        if (getDatFromBinFile(file, totalOf(totals, block.classId), &records[block.classId]) != 0) {
            return TRACED(-1, kFailure, "_OUT_ getDatFromBinFile[%s] Failure!!", block.name);
        }
    }
    return 0;
}

} // namespace

int getDatFromBinFile(std::FILE *file, int num, DatInfo *datInfo)
{
    const TraceScope scope;
    TRACE(kDetail, "_IN_ cnt=[%d]", num);
    if (file == nullptr) {
        return TRACED(-1, kFailure, "_OUT_ param(fp) Failure!!");
    }
    if (num < 0) {
        return TRACED(-1, kFailure, "_OUT_ param(cnt) Failure!!");
    }
    if (datInfo == nullptr) {
        return TRACED(-1, kFailure, "_OUT_ param(datInfo) Failure!!");
    }
    const DatInfo now = recordsNow(*datInfo);
    if (num == 0) {
        if (now.datNum != 0) {
            void *old = takeRecords(*datInfo);
            memfree(old);
        }
        return TRACED(0, kDetail, "_OUT_");
    }
    // No memory is allocated for a count that the file is too short for.
    const int64_t size = static_cast<int64_t>(now.datSize) * num;
    if (bytesLeft(file) < size) {
        return TRACED(-1, kFailure, "_OUT_ fread Failure!! err=[%d]", 0);
    }
    int error = 0;
    if (now.datNum == num && now.datAdr != nullptr) {
        return readOver(file, num, datInfo, error) == 0 ? TRACED(0, kDetail, "_OUT_")
                                                        : TRACED(-1, kFailure, "_OUT_ fread Failure!! err=[%d]", error);
    }
    HeapBlock<uint8_t> area(size > INT32_MAX ? nullptr : memrealloc(nullptr, static_cast<int32_t>(size)));
    if (!area) {
        return TRACED(-1, kFailure, "_OUT_ datInfo realloc Failure!!");
    }
    if (readBytes(file, area.get(), static_cast<size_t>(size), error) != 0) {
        return TRACED(-1, kFailure, "_OUT_ fread Failure!! err=[%d]", error);
    }
    terminateTexts(now.datSize, area.get(), num);
    replaceRecords(*datInfo, num, area.handOver());
    return TRACED(0, kDetail, "_OUT_");
}

int strgGetBinFile(std::FILE *file, DatInfo *records)
{
    const TraceScope scope;
    TRACE(kDetail, "_IN_");
    if (file == nullptr) {
        return TRACED(-1, kFailure, "_OUT_ param(fp) Failure!!");
    }
    if (records == nullptr) {
        return TRACED(-1, kFailure, "_OUT_ param(instSt) Failure!!");
    }
    char line[kVersionLineSize] = {};
    int error = 0;
    const int ret = readBytes(file, line, sizeof line, error);
    TRACE(kDetail, "cDatVar=[%.18s]", static_cast<const char *>(line));
    if (ret != 0) {
        return TRACED(-1, kFailure, "_OUT_ fread[TAV_DAT_STRG_VERNAME] Failure!!");
    }
    // Deliberate: the configuration is taken over before the version is looked at.
    if (getDatFromBinFile(file, 1, &records[TAV_CID_STRG_CONF]) != 0) {
        return TRACED(-1, kFailure, "_OUT_ getDatFromBinFile[CONF] Failure!!");
    }
    const FileVersion version = fileVersion({line, sizeof line});
    if (getTotals(file, version, &records[TAV_CID_STRG_TNUM]) != 0 || getBlocks(file, version, records) != 0) {
        return -1;
    }
    TRACE(kDetail, "- from File Info -");
    strgLogDumpInstanceDat(99, records);
    return TRACED(0, kDetail, "_OUT_");
}

int strgPutBinFile(std::FILE *file, DatInfo *records)
{
    const TraceScope scope;
    TRACE(kDetail, "_IN_");
    if (file == nullptr) {
        return TRACED(-1, kFailure, "_OUT_ param(fp) Failure!!");
    }
    if (records == nullptr) {
        return TRACED(-1, kFailure, "_OUT_ param(instSt) Failure!!");
    }
    TRACE(kDetail, "- to File Info -");
    strgLogDumpInstanceDat(99, records);
    size_t size = 0;
    uint8_t *output = composedFile(records, size);
    if (output == nullptr) {
        return TRACED(-1, kFailure, "_OUT_ outputAdr alloc Failure!!");
    }
    // One call for the whole file, so that a file that is written in part is unlikely.
    const size_t written = std::fwrite(output, 1, size, file);
    const int error = errno;
    memfree(output);
    if (written != size) {
        return TRACED(-1, kFailure, "_OUT_ fwrite Failure!! err=[%d]", error);
    }
    return TRACED(0, kDetail, "_OUT_");
}

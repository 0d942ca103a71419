// SPDX-License-Identifier: Apache-2.0
// Saving so that a crash, a full disk or a power failure leaves either the old file or the new one, never a part of
// one. A file that would not change is not written: a pass in which nothing changed does not wake the system's disk.
#include "runtime/holders.h"
#include "runtime/trace.h"
#include "store/replaced_file.h"
#include "store/state_file_layout.h"
#include "store/store.h"

#include <cerrno>
#include <fcntl.h>
#include <mutex>
#include <unistd.h>

using namespace tavstrg;

namespace {

constexpr ReplacedFile kPlace = {kSavedStateFile, "/opt/qlm/tavkit_sa/data/tavstrgsave.dat.tmp",
                                 "/opt/qlm/tavkit_sa/data"};
static_assert(isReplacedFile(kPlace));

std::mutex saving; // in service mode a request and the monitoring thread may save at the same moment

// A stream that writes the file afresh; null with the error.
std::FILE *streamOver(const FileDesc &file, int &error)
{
    FileDesc copy(file ? ::fcntl(file.get(), F_DUPFD_CLOEXEC, 0) : -1);
    std::FILE *const stream = copy && ::ftruncate(copy.get(), 0) == 0 ? ::fdopen(copy.get(), "wb") : nullptr;
    if (stream == nullptr) {
        error = file ? errno : error;
        return nullptr;
    }
    static_cast<void>(copy.handOver());
    return stream;
}

SaveResult replaceFile(DatInfo *records, int &error)
{
    const FileDesc locked(openReplacement(kPlace, error)); // until the file has its name
    FilePtr file(streamOver(locked, error));
    if (!file) {
        return SaveResult::notOpened;
    }
    TRACE(kDetail, "strgPutBinFile()");
    const bool written =
        strgPutBinFile(file.get(), records) == 0 && std::fflush(file.get()) == 0 && ::fsync(::fileno(file.get())) == 0;
    TRACE(kDetail, "fclose");
    if (file.close() != 0 || !written) {
        dropReplacement(kPlace);
        return SaveResult::notWritten;
    }
    return putInPlace(kPlace) == 0 ? SaveResult::saved : SaveResult::notWritten;
}

// Whether a save would replace the file by one with the same bytes. What cannot be found out is no.
bool isOnDisk(const DatInfo *records)
{
    size_t size = 0;
    {
        const std::shared_lock held(g_recordsLock);
        size = stateFileSize(records);
    }
    HeapBlock<uint8_t> state(std::malloc(size)); // not memalloc, which traces: a save of the same state traces the same
    if (!state) {
        return false;
    }
    {
        const std::shared_lock held(g_recordsLock);
        if (!composeStateFile(records, {state.get(), size})) {
            return false;
        }
    }
    return isInPlace(kPlace, {state.get(), size});
}

ssize_t discard(void *, const char *, size_t size)
{
    return static_cast<ssize_t>(size);
}

// A stream that takes everything and writes it nowhere; null if memory is short.
std::FILE *streamToNowhere()
{
    return ::fopencookie(nullptr, "wb", {nullptr, discard, nullptr, nullptr});
}

} // namespace

SaveResult tavstrg::strgSaveBinFile(DatInfo *records, int &error)
{
    const std::lock_guard held(saving);
    TRACE(kDetail, "fopen[%s]", kSavedStateFile);
    error = 0;
    FilePtr nowhere(isOnDisk(records) ? streamToNowhere() : nullptr);
    if (!nowhere) {
        return replaceFile(records, error);
    }
    // The steps and their traces are those of a file that is written. Whoever changes the records meanwhile saves them.
    TRACE(kDetail, "strgPutBinFile()");
    const bool put = strgPutBinFile(nowhere.get(), records) == 0;
    TRACE(kDetail, "fclose");
    return nowhere.close() == 0 && put ? SaveResult::saved : SaveResult::notWritten;
}

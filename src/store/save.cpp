// SPDX-License-Identifier: Apache-2.0
// Saving so that a crash, a full disk or a power failure leaves either the old file or the new one, never a part of
// one.
#include "runtime/holders.h"
#include "runtime/trace.h"
#include "store/replaced_file.h"
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

} // namespace

SaveResult tavstrg::strgSaveBinFile(DatInfo *records, int &error)
{
    const std::lock_guard held(saving);
    TRACE(kDetail, "fopen[%s]", kSavedStateFile);
    error = 0;
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
    return putInPlace(kPlace) ? SaveResult::saved : SaveResult::notWritten;
}

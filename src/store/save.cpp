// SPDX-License-Identifier: Apache-2.0
// Saving so that a crash, a full disk or a power failure leaves either the old file or the new one, never a part of
// one.
#include "runtime/holders.h"
#include "runtime/pause.h"
#include "runtime/trace.h"
#include "store/store.h"

#include <cerrno>
#include <fcntl.h>
#include <mutex>
#include <string_view>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

using namespace tavstrg;

namespace {

constexpr char kDirectory[] = "/opt/qlm/tavkit_sa/data";
constexpr char kTemporaryFile[] = "/opt/qlm/tavkit_sa/data/tavstrgsave.dat.tmp"; // one left by a crash is overwritten
static_assert(std::string_view(kTemporaryFile).starts_with(kSavedStateFile));
static_assert(std::string_view(kSavedStateFile).starts_with(kDirectory));

constexpr mode_t kOwnerOnly = S_IRUSR | S_IWUSR;

constexpr int kLockWaits = 300;          // about three seconds: as long as any lock here is waited for
constexpr useconds_t kLockPause = 10000; // 10 ms

std::mutex saving; // in service mode a request and the monitoring thread may save at the same moment

// Returns 0 if a rename may replace the path: it is absent, a file, or a symbolic link, which is not followed.
// Otherwise returns the error that opening it for writing would give.
int replaceError(const char *path)
{
    struct stat info = {};
    if (::lstat(path, &info) != 0) {
        return errno == ENOENT ? 0 : errno;
    }
    if (S_ISREG(info.st_mode) || S_ISLNK(info.st_mode)) {
        return 0;
    }
    return S_ISDIR(info.st_mode) ? EISDIR : ENXIO;
}

// Whether the path still leads to this regular file: another process that saves renames it away when it is done.
bool isStillThere(int fd, const char *path)
{
    struct stat open = {};
    struct stat there = {};
    return ::fstat(fd, &open) == 0 && ::lstat(path, &there) == 0 && open.st_dev == there.st_dev &&
           open.st_ino == there.st_ino;
}

// Whether the file has one hard link and belongs to this process's user.
bool isOwn(const struct stat &info)
{
    return info.st_uid == ::geteuid() && info.st_nlink == 1;
}

// Our own file may still have another mode, set by hand or by a restored backup. On a file system without modes this
// fails, which does no harm.
void closeToOthers(int fd, const struct stat &info)
{
    if ((info.st_mode & ALLPERMS) != kOwnerOnly) {
        static_cast<void>(::fchmod(fd, kOwnerOnly));
    }
}

enum class Turn { mine, others, failed };

// A file system without locks has one process that writes to it.
Turn takeTurn(int fd, int &error)
{
    struct stat info = {};
    if (::fstat(fd, &info) != 0) {
        error = errno;
        return Turn::failed;
    }
    if (!S_ISREG(info.st_mode)) {
        error = ENXIO;
        return Turn::failed;
    }
    if (::flock(fd, LOCK_EX | LOCK_NB) != 0 && errno == EWOULDBLOCK) {
        return Turn::others;
    }
    if (!isStillThere(fd, kTemporaryFile)) {
        return Turn::others;
    }
    if (isOwn(info)) {
        closeToOthers(fd, info);
        return Turn::mine;
    }
    // Another owner's file, or one with a second name: it keeps its content and loses this name. It is unlinked only
    // under its lock; otherwise it could be the new file of another process by now.
    if (::unlink(kTemporaryFile) != 0) {
        error = errno;
        return Turn::failed;
    }
    return Turn::others;
}

// The temporary file, locked against other processes of the broker that save at the same moment; -1 with the error.
int openTemporary(int &error)
{
    error = replaceError(kSavedStateFile);
    for (int waits = 0; error == 0 || error == EWOULDBLOCK; ++waits) {
        // O_NONBLOCK: a FIFO in place of the file is an error, not a wait for its reader.
        FileDesc file(
            ::open(kTemporaryFile, O_WRONLY | O_CREAT | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC, kOwnerOnly));
        if (!file) {
            error = errno;
            return -1;
        }
        const Turn turn = takeTurn(file.get(), error);
        if (turn == Turn::mine) {
            return file.handOver();
        }
        if (turn == Turn::failed) {
            return -1;
        }
        error = EWOULDBLOCK; // if another process keeps the lock to the end
        if (waits == kLockWaits) {
            return -1;
        }
        pauseFor(kLockPause);
    }
    return -1;
}

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

// The name is on the disk only when its directory is. The new file is in place already, so a failure is ignored.
void syncDirectory()
{
    const FileDesc directory(::open(kDirectory, O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (directory) {
        static_cast<void>(::fsync(directory.get()));
    }
}

} // namespace

SaveResult tavstrg::strgSaveBinFile(DatInfo *records, int &error)
{
    const std::lock_guard held(saving);
    TRACE(kDetail, "fopen[%s]", kSavedStateFile);
    error = 0;
    const FileDesc locked(openTemporary(error)); // until the file has its name
    FilePtr file(streamOver(locked, error));
    if (!file) {
        return SaveResult::notOpened;
    }
    TRACE(kDetail, "strgPutBinFile()");
    const bool written =
        strgPutBinFile(file.get(), records) == 0 && std::fflush(file.get()) == 0 && ::fsync(::fileno(file.get())) == 0;
    TRACE(kDetail, "fclose");
    if (file.close() != 0 || !written || ::rename(kTemporaryFile, kSavedStateFile) != 0) {
        ::unlink(kTemporaryFile);
        return SaveResult::notWritten;
    }
    syncDirectory();
    return SaveResult::saved;
}

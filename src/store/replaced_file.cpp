// SPDX-License-Identifier: Apache-2.0
#include "store/replaced_file.h"

#include "runtime/holders.h"
#include "runtime/pause.h"
#include "runtime/whole.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

using namespace tavstrg;

namespace {

constexpr mode_t kOwnerOnly = S_IRUSR | S_IWUSR;

constexpr int kLockWaits = 300;          // about three seconds: as long as any lock here is waited for
constexpr useconds_t kLockPause = 10000; // 10 ms

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
Turn takeTurn(int fd, const char *temporary, int &error)
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
    if (!isStillThere(fd, temporary)) {
        return Turn::others;
    }
    if (isOwn(info)) {
        closeToOthers(fd, info);
        return Turn::mine;
    }
    // Another owner's file, or one with a second name: it keeps its content and loses this name. It is unlinked only
    // under its lock; otherwise it could be the new file of another process by now.
    if (::unlink(temporary) != 0) {
        error = errno;
        return Turn::failed;
    }
    return Turn::others;
}

// Whether a file is as a save leaves it, its content aside.
bool looksSaved(const struct stat &info, size_t size)
{
    return S_ISREG(info.st_mode) && (info.st_mode & ALLPERMS) == kOwnerOnly && isOwn(info) &&
           static_cast<size_t>(info.st_size) == size;
}

// Whether a new file could be made and renamed: the directory can be written to, and nothing is in its place.
bool couldReplace(const ReplacedFile &place)
{
    struct stat info = {};
    return ::faccessat(AT_FDCWD, place.directory, W_OK | X_OK, AT_EACCESS) == 0 &&
           ::lstat(place.temporary, &info) != 0 && errno == ENOENT;
}

// Whether the rest of the file has these bytes and no more.
bool readsAs(int fd, std::span<const uint8_t> bytes)
{
    uint8_t buffer[4096];
    for (;;) {
        const ssize_t got = ::read(fd, buffer, sizeof buffer);
        const auto length = static_cast<size_t>(std::max<ssize_t>(got, 0));
        if (got <= 0 || length > bytes.size() || std::memcmp(buffer, bytes.data(), length) != 0) {
            return got == 0 && bytes.empty();
        }
        bytes = bytes.subspan(length);
    }
}

bool fileHas(const char *path, std::span<const uint8_t> state)
{
    struct stat info = {};
    if (::lstat(path, &info) != 0 || !looksSaved(info, state.size())) {
        return false;
    }
    // O_NOATIME: the reading does not change the file either.
    const FileDesc file(::open(path, O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC | O_NOATIME));
    return file && ::fstat(file.get(), &info) == 0 && looksSaved(info, state.size()) && readsAs(file.get(), state);
}

// The name is on the disk only when its directory is. The new file is in place already, so a failure is ignored.
void syncDirectory(const char *path)
{
    const FileDesc directory(::open(path, O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (directory) {
        static_cast<void>(::fsync(directory.get()));
    }
}

} // namespace

int tavstrg::openReplacement(const ReplacedFile &place, int &error)
{
    error = replaceError(place.file);
    for (int waits = 0; error == 0 || error == EWOULDBLOCK; ++waits) {
        // O_NONBLOCK: a FIFO in place of the file is an error, not a wait for its reader.
        FileDesc file(
            ::open(place.temporary, O_WRONLY | O_CREAT | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC, kOwnerOnly));
        if (!file) {
            error = errno;
            return -1;
        }
        const Turn turn = takeTurn(file.get(), place.temporary, error);
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

int tavstrg::putInPlace(const ReplacedFile &place)
{
    if (::rename(place.temporary, place.file) != 0) {
        const int error = errno;
        dropReplacement(place);
        return error;
    }
    syncDirectory(place.directory);
    return 0;
}

void tavstrg::dropReplacement(const ReplacedFile &place)
{
    ::unlink(place.temporary);
}

int tavstrg::replaceText(const ReplacedFile &place, std::string_view text, int &error)
{
    FileDesc file(openReplacement(place, error)); // locked until the file has its name
    if (!file) {
        return -1;
    }
    error = ::ftruncate(file.get(), 0) == 0 ? writeWhole(file.get(), text) : errno;
    if (error == 0 && ::fsync(file.get()) != 0) {
        error = errno;
    }
    if (error != 0) {
        dropReplacement(place);
        return -1;
    }
    error = putInPlace(place);
    return error == 0 ? file.handOver() : -1;
}

bool tavstrg::isInPlace(const ReplacedFile &place, std::span<const uint8_t> bytes)
{
    return couldReplace(place) && fileHas(place.file, bytes);
}

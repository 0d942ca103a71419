// SPDX-License-Identifier: Apache-2.0
#include "disks/book/book_file.h"

#include "runtime/holders.h"

#include <cerrno>
#include <climits>
#include <cstdio>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

namespace tavstrg::disks {
namespace {

constexpr mode_t kOwnerOnly = S_IRUSR | S_IWUSR;
constexpr int kLockWaits = 300;          // about three seconds
constexpr useconds_t kLockPause = 10000; // 10 ms
constexpr int kOpenSafely = O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC;

int readAll(int fd, size_t size, Array<char> &text)
{
    for (size_t i = 0; i < size; ++i) {
        if (text.append() == nullptr) {
            return ENOMEM;
        }
    }
    size_t length = 0;
    while (length < size) {
        const ssize_t got = ::read(fd, text.begin() + length, size - length);
        if (got < 0 && errno != EINTR) {
            return errno;
        }
        if (got == 0) {
            break;
        }
        length += got > 0 ? static_cast<size_t>(got) : 0;
    }
    text.shrink(static_cast<int32_t>(length));
    return 0;
}

int writeAll(int fd, std::string_view text)
{
    while (!text.empty()) {
        const ssize_t written = ::write(fd, text.data(), text.size());
        if (written < 0 && errno != EINTR) {
            return errno;
        }
        text.remove_prefix(written > 0 ? static_cast<size_t>(written) : 0);
    }
    return ::fsync(fd) == 0 ? 0 : errno;
}

BookRead moveAside(const char *path, const char *extension, BookRead result, int &error)
{
    char aside[PATH_MAX];
    std::snprintf(aside, sizeof aside, "%s.%s", path, extension);
    if (::rename(path, aside) == 0) {
        return result;
    }
    error = errno;
    return BookRead::failed;
}

// Whether the path still leads to this file: another process that saves renames it away when it is done.
bool isStillThere(int fd, const char *path)
{
    struct stat open = {};
    struct stat there = {};
    return ::fstat(fd, &open) == 0 && ::lstat(path, &there) == 0 && open.st_dev == there.st_dev &&
           open.st_ino == there.st_ino && S_ISREG(open.st_mode);
}

// The temporary file, locked against other processes; -1 with the error. One left by a crash is used again.
int openTemporary(const char *path, int &error)
{
    for (int waits = 0; waits <= kLockWaits; ++waits) {
        FileDesc file(::open(path, O_WRONLY | O_CREAT | kOpenSafely, kOwnerOnly));
        if (!file) {
            error = errno;
            return -1;
        }
        if (::flock(file.get(), LOCK_EX | LOCK_NB) == 0 && isStillThere(file.get(), path)) {
            return file.handOver();
        }
        error = EWOULDBLOCK;
        ::usleep(kLockPause);
    }
    return -1;
}

// The name is on the disk only when its directory is. The file is in place already, so a failure is ignored.
void syncDirectoryOf(const char *path)
{
    char directory[PATH_MAX];
    const std::string_view whole(path);
    const size_t slash = whole.rfind('/');
    std::snprintf(directory, sizeof directory, "%.*s",
                  static_cast<int>(slash == std::string_view::npos ? 1 : slash + 1),
                  slash == std::string_view::npos ? "." : path);
    const FileDesc fd(::open(directory, O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (fd) {
        static_cast<void>(::fsync(fd.get()));
    }
}

} // namespace

BookRead readBook(const char *path, Book &book, int &error)
{
    const FileDesc file(::open(path, O_RDONLY | kOpenSafely));
    error = file ? 0 : errno;
    if (error != 0) {
        return error == ENOENT ? BookRead::absent : BookRead::failed;
    }
    struct stat info = {};
    if (::fstat(file.get(), &info) != 0 || !S_ISREG(info.st_mode)) {
        error = EINVAL;
        return BookRead::failed;
    }
    Array<char> text;
    const bool tooLarge = static_cast<size_t>(info.st_size) > kMostBookBytes;
    error = tooLarge ? 0 : readAll(file.get(), static_cast<size_t>(info.st_size), text);
    if (error != 0) {
        return BookRead::failed;
    }
    switch (tooLarge ? BookState::damaged : parseBook({text.begin(), static_cast<size_t>(text.count())}, book)) {
    case BookState::whole:
        return BookRead::done;
    case BookState::newer:
        return moveAside(path, "newer", BookRead::movedNewer, error);
    case BookState::noMemory:
        error = ENOMEM;
        return BookRead::failed;
    case BookState::damaged:
        break;
    }
    return moveAside(path, "damaged", BookRead::movedAside, error);
}

int saveBook(const char *path, const Book &book)
{
    char temporary[PATH_MAX];
    if (std::snprintf(temporary, sizeof temporary, "%s.tmp", path) >= static_cast<int>(sizeof temporary)) {
        return ENAMETOOLONG;
    }
    Array<char> text;
    if (!composeBook(book, text)) {
        return ENOMEM;
    }
    int error = 0;
    const FileDesc file(openTemporary(temporary, error)); // locked until the file has its name
    if (!file) {
        return error;
    }
    error = ::ftruncate(file.get(), 0) == 0 ? writeAll(file.get(), {text.begin(), static_cast<size_t>(text.count())})
                                            : errno;
    if (error == 0 && ::rename(temporary, path) != 0) {
        error = errno;
    }
    if (error != 0) {
        ::unlink(temporary);
        return error;
    }
    syncDirectoryOf(path);
    return 0;
}

} // namespace tavstrg::disks

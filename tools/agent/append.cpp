// SPDX-License-Identifier: Apache-2.0
// Appending lines to a file. Opening it for each line would cost more than writing, so a regular file is kept open.
#include "agent/line.h"

#include <cerrno>
#include <climits>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

// An open file. It is shared by the threads that write to it and by keptFile.
struct OpenFile {
    int descriptor;
    unsigned users;
    dev_t device;
    ino_t inode;
    int64_t checked;     // tick at which the path was last compared
    char path[PATH_MAX]; // as given
};

// Guarded by Locked, which is never held while a line is written: a file that hangs stops only its own writer.
OpenFile *keptFile = nullptr;

// A link of the system (/dev/stderr) or of our own user; not one that another user has put in place of the file.
bool isTrustedLink(const struct stat &link)
{
    return S_ISLNK(link.st_mode) && (link.st_uid == 0 || link.st_uid == geteuid());
}

int openToAppend(const char *path)
{
    constexpr int kFlags = O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC | O_NOCTTY | O_NONBLOCK;
    constexpr mode_t kMode = 0640;
    const int descriptor = open(path, kFlags | O_NOFOLLOW, kMode);
    if (descriptor >= 0 || errno != ELOOP) {
        return descriptor;
    }
    struct stat link = {};
    if (lstat(path, &link) == 0 && isTrustedLink(link)) {
        return open(path, kFlags, kMode);
    }
    errno = ELOOP;
    return -1;
}

int writeWhole(int descriptor, const Line &line)
{
    const ssize_t written = write(descriptor, line.text(), line.length());
    if (written < 0) {
        return errno;
    }
    return static_cast<size_t>(written) == line.length() ? 0 : ENOSPC;
}

bool isPrintable(unsigned char byte)
{
    return byte >= 0x20 && byte < 0x7f;
}

// The line contains text of devices and files. A terminal gets each byte that is not printable ASCII as \xNN, except
// for the line end, so that no such text can control it.
int writeEscaped(int descriptor, const Line &line)
{
    Line escaped;
    for (size_t i = 0; i < line.length(); ++i) {
        const auto byte = static_cast<unsigned char>(line.text()[i]);
        const bool lineEnd = byte == '\n' && i + 1 == line.length();
        if (isPrintable(byte) || lineEnd) {
            escaped.add(line.text() + i, 1);
        } else {
            escaped.format("\\x%02x", static_cast<unsigned>(byte));
        }
    }
    return writeWhole(descriptor, escaped);
}

// Only a file that is not kept can be a terminal.
int writeUnkept(int descriptor, const Line &line)
{
    return isatty(descriptor) == 1 ? writeEscaped(descriptor, line) : writeWhole(descriptor, line);
}

bool isSameFile(const OpenFile &file, const struct stat &status)
{
    return status.st_dev == file.device && status.st_ino == file.inode;
}

// Whether the path still leads to the open file, by the same rules as if it were opened now.
bool leadsTo(const char *path, const OpenFile &file)
{
    struct stat status = {};
    if (lstat(path, &status) != 0) {
        return false;
    }
    if (S_ISLNK(status.st_mode) && (!isTrustedLink(status) || stat(path, &status) != 0)) {
        return false;
    }
    return isSameFile(file, status);
}

// Whether the descriptor is still ours: a host process that becomes a daemon may close all descriptors, and the number
// may by now be another file's.
bool isStillOpen(const OpenFile &file)
{
    struct stat status = {};
    return fstat(file.descriptor, &status) == 0 && isSameFile(file, status);
}

// These two need the lock.
void release(OpenFile *file)
{
    if (file != nullptr && --file->users == 0) {
        if (isStillOpen(*file)) {
            close(file->descriptor);
        }
        std::free(file);
    }
}

void keep(OpenFile *file)
{
    release(keptFile);
    keptFile = file;
}

// A descriptor that was opened at the path, to be used by this thread and kept. Returns null if it is not to be kept:
// only regular files are. A pipe must be closed, or a later line would end the process when its reader is gone.
OpenFile *shareOpened(int descriptor, const char *path)
{
    struct stat status = {};
    if (fstat(descriptor, &status) != 0 || !S_ISREG(status.st_mode)) {
        return nullptr;
    }
    auto *file = static_cast<OpenFile *>(std::malloc(sizeof(OpenFile)));
    if (file != nullptr) {
        *file = {descriptor, 2, status.st_dev, status.st_ino, 0, {}};
        std::snprintf(file->path, sizeof file->path, "%s", path); // fits: longer paths cannot be opened
        const Locked held;
        keep(file);
    }
    return file;
}

// A clock that advances every 1 to 10 ms and is read without a system call.
int64_t currentTick()
{
    timespec now = {};
    clock_gettime(CLOCK_MONOTONIC_COARSE, &now);
    return now.tv_sec * int64_t{1000000000} + now.tv_nsec;
}

// The kept file, to be used by this thread, if the path leads to it; null otherwise.
OpenFile *shareKept(const char *path, Rotation rotation)
{
    OpenFile *file = nullptr;
    bool check = true;
    {
        const Locked held;
        if (keptFile == nullptr || std::strcmp(keptFile->path, path) != 0) {
            return nullptr;
        }
        file = keptFile;
        ++file->users;
        const int64_t now = currentTick();
        check = rotation == Rotation::checkedAtEachLine || file->checked != now;
        file->checked = now;
    }
    if ((!check || leadsTo(path, *file)) && isStillOpen(*file)) {
        return file;
    }
    const Locked held;
    if (keptFile == file) {
        keep(nullptr);
    }
    release(file);
    return nullptr;
}

// Moves a descriptor out of the numbers of standard input, output and error, where others would write to it.
int aboveStandard(int descriptor)
{
    if (descriptor > STDERR_FILENO || descriptor < 0) {
        return descriptor;
    }
    const int moved = fcntl(descriptor, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
    close(descriptor);
    return moved;
}

int appendTo(OpenFile *file, const Line &line)
{
    const int result = writeWhole(file->descriptor, line);
    const Locked held;
    release(file);
    return result;
}

int openAndAppend(const char *path, const Line &line)
{
    const int descriptor = aboveStandard(openToAppend(path));
    if (descriptor < 0) {
        return errno;
    }
    if (OpenFile *file = shareOpened(descriptor, path)) {
        return appendTo(file, line);
    }
    const int result = writeUnkept(descriptor, line);
    close(descriptor);
    return result;
}

// When the library is unloaded or the process ends.
[[gnu::destructor]] void closeKept()
{
    const Undisturbed undisturbed;
    const Locked held;
    keep(nullptr);
}

} // namespace

int appendLine(const char *path, const Line &line, Rotation rotation)
{
    if (std::strcmp(path, "-") == 0) {
        return writeUnkept(STDERR_FILENO, line);
    }
    OpenFile *file = shareKept(path, rotation);
    return file != nullptr ? appendTo(file, line) : openAndAppend(path, line);
}

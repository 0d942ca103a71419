// SPDX-License-Identifier: Apache-2.0
// Creating a segment: an unused key is found by way of fresh key files.
#include "runtime/holders.h"
#include "runtime/trace.h"
#include "store/key_files.h"
#include "store/segment_lock.h"
#include "store/segment_rules.h"

#include <cerrno>
#include <climits>
#include <cstdio>
#include <fcntl.h>
#include <sys/ipc.h>
#include <sys/shm.h>
#include <sys/stat.h>

using namespace tavstrg;

namespace {

constexpr int kKeyAttempts = 65535;
constexpr size_t kRetiredExtra = 24; // ".bak." and a number

struct KeyFile {
    char path[PATH_MAX];
};

struct RetiredFile {
    char path[PATH_MAX + kRetiredExtra];
};

bool nameKeyFile(KeyFile &file, const char *base, int cid)
{
    const int length = std::snprintf(file.path, sizeof file.path, "%s%d", base, cid);
    return length > 0 && static_cast<size_t>(length) < sizeof file.path;
}

void nameRetired(RetiredFile &retired, const KeyFile &file, int n)
{
    std::snprintf(retired.path, sizeof retired.path, "%s.bak.%d", file.path, n);
}

bool exists(const char *path)
{
    struct stat info = {};
    return ::lstat(path, &info) == 0;
}

bool isLink(const char *path)
{
    struct stat info = {};
    return ::lstat(path, &info) == 0 && S_ISLNK(info.st_mode);
}

// Creates an empty file unless something is there already, which is neither followed nor changed. A file that another
// process of the broker has created just now will do.
int createEmpty(const char *path)
{
    const FileDesc file(
        ::open(path, O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_NOCTTY | O_CLOEXEC, kSegmentPermissions));
    return file || errno == EEXIST ? 0 : -1;
}

enum class Attempt { made, retry, stop };

// Creates the segment of a key if that key is free. An identifier of 0 is refused: it means "none" elsewhere. Five
// parameters: n is for the trace, and the error is that of shmget, which the trace must not change.
Attempt createSegment(key_t key, int size, int n, int &shmId, int &error)
{
    TRACE(kDetail, "shmget(0x%08x , %d)", static_cast<unsigned>(key), size);
    shmId = ::shmget(key, static_cast<size_t>(size), IPC_CREAT | IPC_EXCL | int{kSegmentPermissions});
    error = errno;
    if (shmId > 0) {
        TRACE(kDetail, "shmget[%d]=OK. shmId=[%d]", n, shmId);
        return Attempt::made;
    }
    if (shmId == 0) {
        errno = 0;
        ::shmctl(shmId, IPC_RMID, nullptr);
        const int removeError = errno;
        TRACE(kDetail, "shmget[%d]=NG. shmId=[%d] errno=[%d] shmctl-destroy.", n, shmId, removeError);
        return Attempt::retry;
    }
    if (!segmentRules().anotherKeyHelps(error)) {
        TRACE(kFailure, "shmget[%d]=NG. shmId=[%d] errno=[%d]", n, shmId, error);
        return Attempt::stop;
    }
    TRACE(kFailure, "shmget[%d]=retry. shmId=[%d] errno=[%d]", n, shmId, error);
    return Attempt::retry;
}

// Five parameters, as above.
Attempt attempt(const KeyFile &file, int size, int n, int &shmId, int &error)
{
    if (!exists(file.path)) {
        TRACE(kDetail, "KeyFile NewCreate(%s)", file.path);
        if (createEmpty(file.path) != 0) {
            error = errno;
            TRACE(kFailure, "_OUT_ fopen Failure!! fnm=[%s] errno=[%d]", file.path, error);
            return Attempt::stop;
        }
    }
    if (isLink(file.path)) { // its key would be that of another file: set aside like a key that is taken
        error = ELOOP;
        TRACE(kFailure, "shmget[%d]=retry. shmId=[%d] errno=[%d]", n, shmId, error);
        return Attempt::retry;
    }
    const key_t key = ::ftok(file.path, kProjectId);
    if (key == -1) {
        error = errno;
        if (error == ENOENT) {
            return Attempt::retry; // another process has just retired it
        }
        TRACE(kFailure, "_OUT_ ftok Failure!! fnm=[%s] errno=[%d]", file.path, error);
        return Attempt::stop;
    }
    return createSegment(key, size, n, shmId, error);
}

// Tries keys until one is free. Returns the identifier, or -1 with the last error; n is the last attempt's number.
int findSegment(const KeyFile &file, int size, int &n, int &error)
{
    RetiredFile retired;
    for (n = 1; n <= kKeyAttempts; ++n) {
        int shmId = -1;
        const Attempt outcome = attempt(file, size, n, shmId, error);
        if (outcome == Attempt::made) {
            return shmId;
        }
        if (outcome == Attempt::stop) {
            break;
        }
        nameRetired(retired, file, n); // set aside, not removed: its inode, and with it its key, stays taken
        ::rename(file.path, retired.path);
    }
    TRACE(kFailure, "_OUT_ shmget Failure!!*[%d]", n > kKeyAttempts ? kKeyAttempts : n);
    return -1;
}

void removeRetired(const KeyFile &file, int attempts)
{
    RetiredFile retired;
    bool gap = false;
    for (int n = 1; n <= kKeyAttempts; ++n) {
        nameRetired(retired, file, n);
        if (exists(retired.path)) {
            TRACE(kDetail, "unlink[%s]", retired.path);
            ::unlink(retired.path);
        } else {
            gap = true;
        }
        // Another process that removes at the same moment makes gaps: after a gap, only our own retired files can be
        // left.
        if (gap && n >= attempts) {
            return;
        }
    }
}

int createUnderFreshKey(const char *keyFileBase, int cid, int size, int &error)
{
    KeyFile file;
    if (!nameKeyFile(file, keyFileBase, cid)) {
        error = ENAMETOOLONG;
        return TRACED(-1, kFailure, "_OUT_ fopen Failure!! fnm=[%s] errno=[%d]", keyFileBase, ENAMETOOLONG);
    }
    int attempts = 0;
    const int shmId = findSegment(file, size, attempts, error);
    removeRetired(file, attempts);
    return shmId;
}

} // namespace

void tavstrg::removeRetiredKeys(const char *keyFileBase)
{
    KeyFiles files(keyFileBase);
    while (files.next()) {
        if (files.retired()) {
            TRACE(kDetail, "unlink[%s]", files.path());
            ::unlink(files.path());
        }
    }
}

int shmCreate(const CInfo *cInfo, ShmInfo *shmInfo, const char *keyFileBase, int cid, int size)
{
    const TraceScope scope;
    TRACE(kDetail, "_IN_");
    if (cInfo == nullptr) {
        return TRACED(-1, kFailure, "_OUT_ param(cInfo) Failure!!");
    }
    if (shmInfo == nullptr) {
        return TRACED(-1, kFailure, "_OUT_ param(shmInfo) Failure!!");
    }
    if (keyFileBase == nullptr) {
        return TRACED(-1, kFailure, "_OUT_ param(fnm) Failure!!");
    }
    if (cid < 0) {
        return TRACED(-1, kFailure, "_OUT_ param(cid) Failure!!");
    }
    if (size < 0) {
        return TRACED(-1, kFailure, "_OUT_ param(size) Failure!!");
    }
    SegmentLock lock(cInfo, *shmInfo);
    if (lock.failed()) {
        return TRACED(-1, kFailure, "_OUT_ thmutex_lock Failure!!");
    }
    int error = 0;
    const int shmId = createUnderFreshKey(keyFileBase, cid, size, error);
    if (lock.unlock() != 0) {
        if (shmId > 0) {
            ::shmctl(shmId, IPC_RMID, nullptr); // no caller learns its id
        }
        return TRACED(-1, kFailure, "_OUT_ thmutex_unlock Failure!!");
    }
    TRACE(kDetail, "_OUT_ ret=[%d]", shmId);
    errno = error; // callers trace it
    return shmId;
}

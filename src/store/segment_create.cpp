// SPDX-License-Identifier: Apache-2.0
// Creating a segment: an unused key is found by way of fresh key files.
#include "runtime/holders.h"
#include "runtime/trace.h"
#include "store/segment_lock.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <string_view>
#include <sys/ipc.h>
#include <sys/shm.h>
#include <sys/stat.h>

using namespace tavstrg;

namespace {

constexpr int kKeyAttempts = 65535;
constexpr int kProjectId = 69;       // second half of the key, see ftok(3)
constexpr int kPermissions = 0600;   // of segments and key files
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
    const FileDesc file(::open(path, O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_NOCTTY | O_CLOEXEC, kPermissions));
    return file || errno == EEXIST ? 0 : -1;
}

enum class Attempt { made, retry, stop };

// Creates the segment of a key if that key is free. An identifier of 0 is refused: it means "none" elsewhere. Five
// parameters: n is for the trace, and the error is that of shmget, which the trace must not change.
Attempt createSegment(key_t key, int size, int n, int &shmId, int &error)
{
    TRACE(kDetail, "shmget(0x%08x , %d)", static_cast<unsigned>(key), size);
    shmId = ::shmget(key, static_cast<size_t>(size), IPC_CREAT | IPC_EXCL | kPermissions);
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

// Takes the decimal digits off the front of a text. Returns whether there were any.
bool takeNumber(std::string_view &text)
{
    const size_t digits = std::min(text.find_first_not_of("0123456789"), text.size());
    text.remove_prefix(digits);
    return digits > 0;
}

// Whether a name is that of a retired key file: base, class, ".bak.", number.
bool isRetired(std::string_view name, std::string_view base)
{
    constexpr std::string_view kRetired = ".bak.";
    if (!name.starts_with(base)) {
        return false;
    }
    name.remove_prefix(base.size());
    if (!takeNumber(name) || !name.starts_with(kRetired)) {
        return false;
    }
    name.remove_prefix(kRetired.size());
    return takeNumber(name) && name.empty();
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
    const std::string_view base(keyFileBase);
    const size_t slash = base.rfind('/');
    KeyFile directory;
    if (slash >= sizeof directory.path) { // also where there is no "/"
        return;
    }
    std::memcpy(directory.path, keyFileBase, slash);
    directory.path[slash] = '\0';
    const OpenDirectory entries(directory.path);
    while (const char *const name = entries.next()) {
        if (isRetired(name, base.substr(slash + 1))) {
            char path[PATH_MAX + NAME_MAX + 2];
            std::snprintf(path, sizeof path, "%s/%s", directory.path, name);
            TRACE(kDetail, "unlink[%s]", path);
            ::unlink(path);
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

// SPDX-License-Identifier: Apache-2.0
#include "store/segment_rules.h"

#include "records/records.h"
#include "runtime/options.h"
#include "runtime/trace.h"
#include "store/key_files.h"
#include "store/segment.h"

#include <cerrno>
#include <csignal>
#include <sys/ipc.h>
#include <sys/shm.h>
#include <sys/stat.h>
#include <unistd.h>

using namespace tavstrg;

namespace {

// The creator of a segment as the kernel reports it: 0 for a process of another namespace, which may live.
bool isGone(pid_t creator)
{
    return creator > 0 && ::kill(creator, 0) != 0 && errno == ESRCH;
}

// Another program's segment may have the same key by chance: ours have our owner, mode and whole records.
bool isLikeOurs(const struct shmid_ds &segment, int classId)
{
    constexpr unsigned kModeBits = 0777;
    const bool records = classId >= 0 && classId < TAV_CID_STRG_MAX && segment.shm_segsz > 0 &&
                         segment.shm_segsz % kClasses[classId].recordSize == 0;
    return records && segment.shm_perm.cuid == ::geteuid() &&
           (segment.shm_perm.mode & kModeBits) == kSegmentPermissions;
}

bool isStale(const struct shmid_ds &segment, int classId)
{
    return isLikeOurs(segment, classId) && segment.shm_nattch == 0 && isGone(segment.shm_cpid);
}

// The segment of a key file; -1 if there is none. A link has the key of another file.
int segmentOf(const char *path)
{
    struct stat info = {};
    if (::lstat(path, &info) != 0 || !S_ISREG(info.st_mode)) {
        return -1;
    }
    const key_t key = ::ftok(path, kProjectId);
    return key == -1 ? -1 : ::shmget(key, 0, 0);
}

void removeIfStale(const KeyFiles &file)
{
    const int id = segmentOf(file.path());
    struct shmid_ds segment = {};
    if (id <= 0 || ::shmctl(id, IPC_STAT, &segment) != 0 || !isStale(segment, file.classId())) {
        return;
    }
    const int error = ::shmctl(id, IPC_RMID, nullptr) == 0 ? 0 : errno;
    TRACE(kDetail, "stale segment of [%s] shmId=[%d] creator=[%d] shmctl-destroy. errno=[%d]", file.path(), id,
          static_cast<int>(segment.shm_cpid), error);
}

bool helpsAlways(int /*error*/)
{
    return true;
}

// Not where the key is the fault, or may be: a segment of that key exists, or may not be looked at.
bool helpsWhereTheKeyIsAtFault(int error)
{
    return error == EEXIST || error == EACCES;
}

void clearStaleWork(const char *keyFileBase)
{
    removeStaleSegments(keyFileBase); // by their key files, which are removed next
    removeRetiredKeys(keyFileBase);
}

constexpr SegmentRules kOfBase = {removeRetiredKeys, helpsAlways};
constexpr SegmentRules kOfStaleSegments = {clearStaleWork, helpsWhereTheKeyIsAtFault};

} // namespace

const SegmentRules &tavstrg::segmentRules()
{
    return currentOptions().has(Option::staleSegments) ? kOfStaleSegments : kOfBase;
}

void tavstrg::removeStaleSegments(const char *keyFileBase)
{
    KeyFiles files(keyFileBase);
    while (files.next()) {
        removeIfStale(files);
    }
}

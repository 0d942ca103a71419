// SPDX-License-Identifier: Apache-2.0
#include "sim/directory.h"

#include "sim/hex.h"
#include "sim/paths.h"
#include "sim/tree.h"

#include <array>
#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <stdexcept>
#include <sys/file.h>
#include <sys/random.h>
#include <sys/stat.h>
#include <unistd.h>

namespace sim {

namespace {

constexpr const char *kPrefix = "tavsim.";
constexpr const char *kLock = ".lock";

class Descriptor {
public:
    explicit Descriptor(int descriptor) : descriptor_(descriptor) {}
    ~Descriptor()
    {
        if (descriptor_ >= 0) {
            close(descriptor_);
        }
    }
    Descriptor(const Descriptor &) = delete;
    Descriptor &operator=(const Descriptor &) = delete;
    int get() const { return descriptor_; }

private:
    int descriptor_;
};

[[noreturn]] void failMaking(const std::string &path)
{
    throw std::runtime_error("cannot make " + path + ": " + std::strerror(errno));
}

// A machine is some thousand small files, best kept in memory.
std::string parentDirectory()
{
    const char *chosen = std::getenv("TMPDIR");
    if (chosen != nullptr && *chosen != '\0') {
        return chosen;
    }
    return access("/dev/shm", W_OK | X_OK) == 0 ? "/dev/shm" : "/tmp";
}

// The parent directory is usually writable by everyone: a predictable name could be taken before.
std::string makeDirectory(const std::string &parent)
{
    std::array<unsigned char, 16> random{};
    std::string path = parent + "/" + kPrefix;
    if (getrandom(random.data(), random.size(), 0) != static_cast<ssize_t>(random.size())) {
        failMaking(path);
    }
    path += hexText(random);
    if (mkdir(path.c_str(), 0700) != 0) {
        failMaking(path);
    }
    return path;
}

// The file is locked before it gets its name, so that the lock of a live machine is never found unlocked.
int makeLock(const std::string &directory)
{
    const std::string path = directory + "/" + kLock;
    const std::string fresh = path + "-new";
    const int descriptor = open(fresh.c_str(), O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600);
    if (descriptor >= 0 && (flock(descriptor, LOCK_EX) != 0 || rename(fresh.c_str(), path.c_str()) != 0)) {
        close(descriptor);
        return -1;
    }
    return descriptor;
}

// Whether an entry of the parent directory is a directory that only this user can change. Other users may put anything
// under our prefix: links, files with a lease, mounted file systems that do not answer. So nothing is opened before its
// owner is known, and the owner is read without asking the file system for it (AT_STATX_DONT_SYNC).
bool isOwnDirectory(int parent, const char *name)
{
    struct statx status {};
    return statx(parent, name, AT_SYMLINK_NOFOLLOW | AT_NO_AUTOMOUNT | AT_STATX_DONT_SYNC,
                 STATX_TYPE | STATX_MODE | STATX_UID, &status) == 0 &&
           S_ISDIR(status.stx_mode) && status.stx_uid == geteuid() && (status.stx_mode & 077) == 0 &&
           (status.stx_attributes & STATX_ATTR_MOUNT_ROOT) == 0;
}

bool isAbandoned(int parent, const char *name)
{
    const Descriptor directory(openat(parent, name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    // O_NONBLOCK: does not wait for the holder of a lease, or for the other end of a FIFO.
    const Descriptor lock(openat(directory.get(), kLock, O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    struct stat status {};
    return lock.get() >= 0 && fstat(lock.get(), &status) == 0 && S_ISREG(status.st_mode) &&
           flock(lock.get(), LOCK_EX | LOCK_NB) == 0;
}

void removeAbandoned(const std::string &parent)
{
    const Descriptor opened(open(parent.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    std::error_code ignored;
    for (const auto &entry : std::filesystem::directory_iterator(parent, ignored)) {
        const std::string name = entry.path().filename().string();
        if (name.starts_with(kPrefix) && isOwnDirectory(opened.get(), name.c_str()) &&
            isAbandoned(opened.get(), name.c_str())) {
            std::filesystem::remove_all(entry.path(), ignored);
        }
    }
}

} // namespace

MachineDirectory::MachineDirectory(const std::string &stateDirectory)
{
    const std::string parent = parentDirectory();
    static std::atomic<bool> swept{false};
    if (!swept.exchange(true)) {
        removeAbandoned(parent);
    }
    path_ = makeDirectory(parent);
    lock_ = makeLock(path_);
    try {
        linkState(stateDirectory);
    } catch (...) {
        remove();
        throw;
    }
}

MachineDirectory::~MachineDirectory()
{
    if (lock_ >= 0) {
        close(lock_);
    }
}

void MachineDirectory::linkState(const std::string &stateDirectory) const
{
    if (stateDirectory.empty()) {
        return;
    }
    for (const char *name : {"data", "work"}) {
        const std::string kept = std::filesystem::absolute(stateDirectory) / name;
        putDirectory(kept);
        putLink(realPath(path_, TreePath(kAgentRoot) / name), kept);
    }
}

void MachineDirectory::remove()
{
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
    if (lock_ >= 0) {
        close(lock_);
        lock_ = -1;
    }
}

} // namespace sim

// SPDX-License-Identifier: Apache-2.0
#include "sim/directory.h"

#include "sim/paths.h"
#include "sim/tree.h"

#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <stdexcept>
#include <sys/file.h>
#include <unistd.h>

namespace sim {

namespace {

constexpr const char *kPrefix = "tavsim.";
constexpr const char *kLock = "/.lock";

// Where directories are made: a machine is some thousand small files, best kept in memory.
std::string parentDirectory()
{
    const char *wanted = std::getenv("TMPDIR");
    if (wanted != nullptr && *wanted != '\0') {
        return wanted;
    }
    return access("/dev/shm", W_OK | X_OK) == 0 ? "/dev/shm" : "/tmp";
}

// Locked before it has its name: nobody ever finds the lock of a live machine open.
int makeLock(const std::string &directory)
{
    const std::string fresh = directory + kLock + "-new";
    const int descriptor = open(fresh.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    if (descriptor >= 0 &&
        (flock(descriptor, LOCK_EX) != 0 || rename(fresh.c_str(), (directory + kLock).c_str()) != 0)) {
        close(descriptor);
        return -1;
    }
    return descriptor;
}

void removeIfAbandoned(const std::string &directory)
{
    const int descriptor = open((directory + kLock).c_str(), O_RDWR | O_CLOEXEC);
    if (descriptor < 0) {
        return;
    }
    if (flock(descriptor, LOCK_EX | LOCK_NB) == 0) {
        std::error_code ignored;
        std::filesystem::remove_all(directory, ignored);
    }
    close(descriptor);
}

void removeAbandoned(const std::string &parent)
{
    std::error_code ignored;
    for (const auto &entry : std::filesystem::directory_iterator(parent, ignored)) {
        if (entry.path().filename().string().starts_with(kPrefix)) {
            removeIfAbandoned(entry.path());
        }
    }
}

} // namespace

MachineDirectory::MachineDirectory(const std::string &stateDirectory) : path_(parentDirectory()), lock_(-1)
{
    static std::atomic<bool> swept{false};
    if (!swept.exchange(true)) {
        removeAbandoned(path_);
    }
    path_ += std::string("/") + kPrefix + "XXXXXX";
    if (mkdtemp(path_.data()) == nullptr) {
        throw std::runtime_error("cannot make " + path_ + ": " + std::strerror(errno));
    }
    lock_ = makeLock(path_);
    if (stateDirectory.empty()) {
        return;
    }
    for (const char *name : {"/data", "/work"}) {
        const std::string kept = std::filesystem::absolute(stateDirectory).string() + name;
        putDirectory(kept);
        putLink(path_ + std::string(kAgentRoot) + name, kept);
    }
}

MachineDirectory::~MachineDirectory()
{
    if (lock_ >= 0) {
        close(lock_);
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

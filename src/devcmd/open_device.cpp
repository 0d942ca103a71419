// SPDX-License-Identifier: Apache-2.0
#include "devcmd/open_device.h"

#include "runtime/holders.h"

#include <cerrno>
#include <cstdint>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

using namespace tavstrg;

std::atomic<NodeUse> tavstrg::g_nodeUse = NodeUse::kAsAsked;

namespace {

thread_local constinit KnownNodes *current = nullptr;

// FNV-1a, 32 bits.
constexpr uint32_t hashOf(std::string_view text)
{
    uint32_t hash = 2166136261U;
    for (const char letter : text) {
        hash = (hash ^ static_cast<uint8_t>(letter)) * 16777619U;
    }
    return hash;
}

bool isFifo(const char *path)
{
    if (current != nullptr && current->has(path)) {
        return false;
    }
    struct stat status {};
    if (::stat(path, &status) != 0) {
        return false;
    }
    if (S_ISFIFO(status.st_mode)) {
        return true;
    }
    if (current != nullptr) {
        current->add(path);
    }
    return false;
}

} // namespace

KnownNodes::KnownNodes() : outer_(std::exchange(current, this)) {}

KnownNodes::~KnownNodes()
{
    current = outer_;
}

size_t KnownNodes::slotOf(std::string_view path) const
{
    size_t slot = hashOf(path) % kSlots;
    while (slots_[slot][0] != '\0' && path != slots_[slot].data()) {
        slot = (slot + 1) % kSlots;
    }
    return slot;
}

bool KnownNodes::has(std::string_view path) const
{
    return slots_[slotOf(path)][0] != '\0';
}

void KnownNodes::add(std::string_view path)
{
    Path &slot = slots_[slotOf(path)];
    if (path.size() < slot.size() && paths_ < kMostPaths && slot[0] == '\0') {
        path.copy(slot.data(), slot.size() - 1);
        ++paths_;
    }
}

int tavstrg::openDevice(const char *path, int mode)
{
    if (path == nullptr) {
        errno = EFAULT;
        return -1;
    }
    // O_NONBLOCK would not wait for a FIFO either, but it also opens drives without a medium, which must fail as long
    // as nothing else is asked for.
    if (isFifo(path)) {
        errno = ENODEV;
        return -1;
    }
    const int flags = g_nodeUse == NodeUse::kReadOnly ? O_RDONLY | O_NONBLOCK : mode;
    return ::open(path, flags | O_NOCTTY | O_CLOEXEC);
}

std::FILE *tavstrg::openProcText(const char *path)
{
    FileDesc fd(::open(path, O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
    struct stat status {};
    if (!fd || ::fstat(fd.get(), &status) != 0) {
        return nullptr;
    }
    if (!S_ISREG(status.st_mode)) {
        errno = EINVAL;
        return nullptr;
    }
    std::FILE *const file = ::fdopen(fd.get(), "r");
    if (file != nullptr) {
        static_cast<void>(fd.handOver());
    }
    return file;
}

ErrorText::ErrorText(int error) : text_(::strerror_r(error, buffer_, sizeof buffer_)) {}

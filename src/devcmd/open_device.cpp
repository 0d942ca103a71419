// SPDX-License-Identifier: Apache-2.0
#include "devcmd/open_device.h"

#include "runtime/holders.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

using namespace tavstrg;

NodeUse tavstrg::g_nodeUse = NodeUse::kAsAsked;

int tavstrg::openDevice(const char *path, int mode)
{
    struct stat status {};
    if (path == nullptr) {
        errno = EFAULT;
        return -1;
    }
    // O_NONBLOCK would not wait for a FIFO either, but it also opens drives without a medium, which must fail as long
    // as nothing else is asked for.
    if (::stat(path, &status) == 0 && S_ISFIFO(status.st_mode)) {
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

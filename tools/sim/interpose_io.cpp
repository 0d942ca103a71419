// SPDX-License-Identifier: Apache-2.0
// Reading and writing of descriptors.
#include "sim/interpose.h"

#include <sys/types.h>

using namespace sim;

namespace {

constinit Real<ssize_t(int, void *, size_t)> realRead{"read"};
constinit Real<ssize_t(int, void *, size_t, size_t)> realReadChk{"__read_chk"};
constinit Real<ssize_t(int, const void *, size_t)> realWrite{"write"};
constinit Real<int(int)> realFsync{"fsync"};
constinit Real<int(int)> realFdatasync{"fdatasync"};

} // namespace

SIM_EXPORT ssize_t simRead(int descriptor, void *to, size_t size) __asm__("read");
SIM_EXPORT ssize_t simReadChk(int descriptor, void *to, size_t size, size_t room) __asm__("__read_chk");
SIM_EXPORT ssize_t simWrite(int descriptor, const void *from, size_t size) __asm__("write");
SIM_EXPORT int simFsync(int descriptor) __asm__("fsync");
SIM_EXPORT int simFdatasync(int descriptor) __asm__("fdatasync");

extern "C" ssize_t simRead(int descriptor, void *to, size_t size)
{
    return SIM_STRIKES(read, "read") ? failedWith<ssize_t>(EIO) : realRead(descriptor, to, size);
}

extern "C" ssize_t simReadChk(int descriptor, void *to, size_t size, size_t room)
{
    return SIM_STRIKES(read, "__read_chk") ? failedWith<ssize_t>(EIO) : realReadChk(descriptor, to, size, room);
}

extern "C" ssize_t simWrite(int descriptor, const void *from, size_t size)
{
    return SIM_STRIKES(write, "write") ? failedWith<ssize_t>(ENOSPC) : realWrite(descriptor, from, size);
}

extern "C" int simFsync(int descriptor)
{
    return SIM_STRIKES(write, "fsync") ? failedWith(EIO) : realFsync(descriptor);
}

extern "C" int simFdatasync(int descriptor)
{
    return SIM_STRIKES(write, "fdatasync") ? failedWith(EIO) : realFdatasync(descriptor);
}

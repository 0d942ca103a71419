// SPDX-License-Identifier: Apache-2.0
// Files by their descriptors: open and its variants, close, reading and writing.
#include "sim/interpose.h"
#include "sim/uevents.h"

#include <cstdarg>
#include <fcntl.h>
#include <sys/types.h>

using namespace sim;

namespace {

using OpenFunction = int(const char *, int, ...);
using OpenAtFunction = int(int, const char *, int, ...);

constinit Real<OpenFunction> realOpen{"open"};
constinit Real<OpenFunction> realOpen64{"open64"};
constinit Real<OpenAtFunction> realOpenAt{"openat"};
constinit Real<OpenAtFunction> realOpenAt64{"openat64"};
constinit Real<int(const char *, mode_t)> realCreat{"creat"};
constinit Real<int(const char *, mode_t)> realCreat64{"creat64"};
constinit Real<int(const char *, int)> realOpen2{"__open_2"};
constinit Real<int(const char *, int)> realOpen64Two{"__open64_2"};
constinit Real<int(int, const char *, int)> realOpenAt2{"__openat_2"};
constinit Real<int(int, const char *, int)> realOpenAt64Two{"__openat64_2"};
constinit Real<int(int)> realClose{"close"};
constinit Real<ssize_t(int, void *, size_t)> realRead{"read"};
constinit Real<ssize_t(int, void *, size_t, size_t)> realReadChk{"__read_chk"};
constinit Real<ssize_t(int, const void *, size_t)> realWrite{"write"};
constinit Real<int(int)> realFsync{"fsync"};
constinit Real<int(int)> realFdatasync{"fdatasync"};

// open has a mode argument only where it may create a file.
mode_t modeOf(int flags, va_list arguments)
{
    return (flags & O_CREAT) != 0 || (flags & O_TMPFILE) == O_TMPFILE ? va_arg(arguments, mode_t) : 0;
}

// call opens the translated path.
template <class OpenCall> int openThrough(const char *path, int flags, bool product, OpenCall call)
{
    followDescription();
    const Translated translated(path);
    if (const int error = beginOpening(translated, flags); error != 0) {
        return tellOpened(failedWith(error), path);
    }
    return tellOpened(noteOpened(call(translated.c_str()), translated, product), path);
}

} // namespace

SIM_EXPORT int simOpen(const char *path, int flags, ...) __asm__("open");
SIM_EXPORT int simOpen64(const char *path, int flags, ...) __asm__("open64");
SIM_EXPORT int simOpenAt(int directory, const char *path, int flags, ...) __asm__("openat");
SIM_EXPORT int simOpenAt64(int directory, const char *path, int flags, ...) __asm__("openat64");
SIM_EXPORT int simCreat(const char *path, mode_t mode) __asm__("creat");
SIM_EXPORT int simCreat64(const char *path, mode_t mode) __asm__("creat64");
SIM_EXPORT int simOpen2(const char *path, int flags) __asm__("__open_2");
SIM_EXPORT int simOpen64Two(const char *path, int flags) __asm__("__open64_2");
SIM_EXPORT int simOpenAt2(int directory, const char *path, int flags) __asm__("__openat_2");
SIM_EXPORT int simOpenAt64Two(int directory, const char *path, int flags) __asm__("__openat64_2");
SIM_EXPORT int simClose(int descriptor) __asm__("close");
SIM_EXPORT ssize_t simRead(int descriptor, void *to, size_t size) __asm__("read");
SIM_EXPORT ssize_t simReadChk(int descriptor, void *to, size_t size, size_t room) __asm__("__read_chk");
SIM_EXPORT ssize_t simWrite(int descriptor, const void *from, size_t size) __asm__("write");
SIM_EXPORT int simFsync(int descriptor) __asm__("fsync");
SIM_EXPORT int simFdatasync(int descriptor) __asm__("fdatasync");

extern "C" int simOpen(const char *path, int flags, ...)
{
    va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = modeOf(flags, arguments);
    va_end(arguments);
    if (SIM_FAILS(open, "open")) {
        return failedWith(EMFILE);
    }
    return openThrough(path, flags, SIM_IS_PRODUCT("open"), [&](const char *to) { return realOpen(to, flags, mode); });
}

extern "C" int simOpen64(const char *path, int flags, ...)
{
    va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = modeOf(flags, arguments);
    va_end(arguments);
    if (SIM_FAILS(open, "open64")) {
        return failedWith(EMFILE);
    }
    return openThrough(path, flags, SIM_IS_PRODUCT("open64"),
                       [&](const char *to) { return realOpen64(to, flags, mode); });
}

extern "C" int simOpenAt(int directory, const char *path, int flags, ...)
{
    va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = modeOf(flags, arguments);
    va_end(arguments);
    if (SIM_FAILS(open, "openat")) {
        return failedWith(EMFILE);
    }
    return openThrough(path, flags, SIM_IS_PRODUCT("openat"),
                       [&](const char *to) { return realOpenAt(directory, to, flags, mode); });
}

extern "C" int simOpenAt64(int directory, const char *path, int flags, ...)
{
    va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = modeOf(flags, arguments);
    va_end(arguments);
    if (SIM_FAILS(open, "openat64")) {
        return failedWith(EMFILE);
    }
    return openThrough(path, flags, SIM_IS_PRODUCT("openat64"),
                       [&](const char *to) { return realOpenAt64(directory, to, flags, mode); });
}

extern "C" int simCreat(const char *path, mode_t mode)
{
    if (SIM_FAILS(open, "creat")) {
        return failedWith(EMFILE);
    }
    return openThrough(path, O_WRONLY, SIM_IS_PRODUCT("creat"), [&](const char *to) { return realCreat(to, mode); });
}

extern "C" int simCreat64(const char *path, mode_t mode)
{
    if (SIM_FAILS(open, "creat64")) {
        return failedWith(EMFILE);
    }
    return openThrough(path, O_WRONLY, SIM_IS_PRODUCT("creat64"),
                       [&](const char *to) { return realCreat64(to, mode); });
}

extern "C" int simOpen2(const char *path, int flags)
{
    if (SIM_FAILS(open, "__open_2")) {
        return failedWith(EMFILE);
    }
    return openThrough(path, flags, SIM_IS_PRODUCT("__open_2"), [&](const char *to) { return realOpen2(to, flags); });
}

extern "C" int simOpen64Two(const char *path, int flags)
{
    if (SIM_FAILS(open, "__open64_2")) {
        return failedWith(EMFILE);
    }
    return openThrough(path, flags, SIM_IS_PRODUCT("__open64_2"),
                       [&](const char *to) { return realOpen64Two(to, flags); });
}

extern "C" int simOpenAt2(int directory, const char *path, int flags)
{
    if (SIM_FAILS(open, "__openat_2")) {
        return failedWith(EMFILE);
    }
    return openThrough(path, flags, SIM_IS_PRODUCT("__openat_2"),
                       [&](const char *to) { return realOpenAt2(directory, to, flags); });
}

extern "C" int simOpenAt64Two(int directory, const char *path, int flags)
{
    if (SIM_FAILS(open, "__openat64_2")) {
        return failedWith(EMFILE);
    }
    return openThrough(path, flags, SIM_IS_PRODUCT("__openat64_2"),
                       [&](const char *to) { return realOpenAt64Two(directory, to, flags); });
}

extern "C" int simClose(int descriptor)
{
    closed(descriptor); // before the real close: after it another thread may get the same number
    return realClose(descriptor);
}

extern "C" ssize_t simRead(int descriptor, void *to, size_t size)
{
    if (SIM_FAILS(read, "read")) {
        return failedWith<ssize_t>(EIO);
    }
    return isEventSocket(descriptor) ? readEvent(descriptor, to, size) : realRead(descriptor, to, size);
}

extern "C" ssize_t simReadChk(int descriptor, void *to, size_t size, size_t room)
{
    if (SIM_FAILS(read, "__read_chk")) {
        return failedWith<ssize_t>(EIO);
    }
    return isEventSocket(descriptor) ? readEvent(descriptor, to, size) : realReadChk(descriptor, to, size, room);
}

extern "C" ssize_t simWrite(int descriptor, const void *from, size_t size)
{
    return SIM_FAILS(write, "write") ? failedWith<ssize_t>(ENOSPC) : realWrite(descriptor, from, size);
}

extern "C" int simFsync(int descriptor)
{
    return SIM_FAILS(write, "fsync") ? failedWith(EIO) : realFsync(descriptor);
}

extern "C" int simFdatasync(int descriptor)
{
    return SIM_FAILS(write, "fdatasync") ? failedWith(EIO) : realFdatasync(descriptor);
}

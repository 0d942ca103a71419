// SPDX-License-Identifier: Apache-2.0
// open and its kin, close.
#include "sim/interpose.h"

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

// The mode is there only where a file can be made.
mode_t modeOf(int flags, va_list arguments)
{
    return (flags & O_CREAT) != 0 || (flags & O_TMPFILE) == O_TMPFILE ? va_arg(arguments, mode_t) : 0;
}

// call opens the translated path.
template <class OpenCall> int openThrough(const char *path, bool product, OpenCall call)
{
    followDescription();
    const Translated translated(path);
    if (const int error = openErrorOf(translated); error != 0) {
        return failedWith(error);
    }
    return noteOpened(call(translated.c_str()), translated, product);
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

extern "C" int simOpen(const char *path, int flags, ...)
{
    va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = modeOf(flags, arguments);
    va_end(arguments);
    if (SIM_STRIKES(open, "open")) {
        return failedWith(EMFILE);
    }
    return openThrough(path, SIM_IS_PRODUCT("open"), [&](const char *to) { return realOpen(to, flags, mode); });
}

extern "C" int simOpen64(const char *path, int flags, ...)
{
    va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = modeOf(flags, arguments);
    va_end(arguments);
    if (SIM_STRIKES(open, "open64")) {
        return failedWith(EMFILE);
    }
    return openThrough(path, SIM_IS_PRODUCT("open64"), [&](const char *to) { return realOpen64(to, flags, mode); });
}

extern "C" int simOpenAt(int directory, const char *path, int flags, ...)
{
    va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = modeOf(flags, arguments);
    va_end(arguments);
    if (SIM_STRIKES(open, "openat")) {
        return failedWith(EMFILE);
    }
    return openThrough(path, SIM_IS_PRODUCT("openat"),
                       [&](const char *to) { return realOpenAt(directory, to, flags, mode); });
}

extern "C" int simOpenAt64(int directory, const char *path, int flags, ...)
{
    va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = modeOf(flags, arguments);
    va_end(arguments);
    if (SIM_STRIKES(open, "openat64")) {
        return failedWith(EMFILE);
    }
    return openThrough(path, SIM_IS_PRODUCT("openat64"),
                       [&](const char *to) { return realOpenAt64(directory, to, flags, mode); });
}

extern "C" int simCreat(const char *path, mode_t mode)
{
    if (SIM_STRIKES(open, "creat")) {
        return failedWith(EMFILE);
    }
    return openThrough(path, SIM_IS_PRODUCT("creat"), [&](const char *to) { return realCreat(to, mode); });
}

extern "C" int simCreat64(const char *path, mode_t mode)
{
    if (SIM_STRIKES(open, "creat64")) {
        return failedWith(EMFILE);
    }
    return openThrough(path, SIM_IS_PRODUCT("creat64"), [&](const char *to) { return realCreat64(to, mode); });
}

extern "C" int simOpen2(const char *path, int flags)
{
    if (SIM_STRIKES(open, "__open_2")) {
        return failedWith(EMFILE);
    }
    return openThrough(path, SIM_IS_PRODUCT("__open_2"), [&](const char *to) { return realOpen2(to, flags); });
}

extern "C" int simOpen64Two(const char *path, int flags)
{
    if (SIM_STRIKES(open, "__open64_2")) {
        return failedWith(EMFILE);
    }
    return openThrough(path, SIM_IS_PRODUCT("__open64_2"), [&](const char *to) { return realOpen64Two(to, flags); });
}

extern "C" int simOpenAt2(int directory, const char *path, int flags)
{
    if (SIM_STRIKES(open, "__openat_2")) {
        return failedWith(EMFILE);
    }
    return openThrough(path, SIM_IS_PRODUCT("__openat_2"),
                       [&](const char *to) { return realOpenAt2(directory, to, flags); });
}

extern "C" int simOpenAt64Two(int directory, const char *path, int flags)
{
    if (SIM_STRIKES(open, "__openat64_2")) {
        return failedWith(EMFILE);
    }
    return openThrough(path, SIM_IS_PRODUCT("__openat64_2"),
                       [&](const char *to) { return realOpenAt64Two(directory, to, flags); });
}

extern "C" int simClose(int descriptor)
{
    closed(descriptor); // before it is: the number can be another's at once
    return realClose(descriptor);
}

// SPDX-License-Identifier: Apache-2.0
// Calls that change or resolve a path.
#include "sim/interpose.h"

#include <algorithm>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <sys/ipc.h>
#include <sys/stat.h>
#include <sys/types.h>
#include <unistd.h>

using namespace sim;

namespace {

constinit Real<int(const char *, int)> realAccess{"access"};
constinit Real<int(int, const char *, int, int)> realFaccessAt{"faccessat"};
constinit Real<int(const char *)> realUnlink{"unlink"};
constinit Real<int(int, const char *, int)> realUnlinkAt{"unlinkat"};
constinit Real<int(const char *)> realRemove{"remove"};
constinit Real<int(const char *, const char *)> realRename{"rename"};
constinit Real<int(int, const char *, int, const char *)> realRenameAt{"renameat"};
constinit Real<int(int, const char *, int, const char *, unsigned)> realRenameAt2{"renameat2"};
constinit Real<int(const char *, mode_t)> realMkdir{"mkdir"};
constinit Real<int(int, const char *, mode_t)> realMkdirAt{"mkdirat"};
constinit Real<int(const char *, mode_t)> realMkfifo{"mkfifo"};
constinit Real<int(const char *)> realRmdir{"rmdir"};
constinit Real<int(const char *, mode_t)> realChmod{"chmod"};
constinit Real<int(const char *, uid_t, gid_t)> realChown{"chown"};
constinit Real<int(const char *, const char *)> realLink{"link"};
constinit Real<int(const char *, const char *)> realSymlink{"symlink"};
constinit Real<int(const char *, off_t)> realTruncate{"truncate"};
constinit Real<int(const char *, off_t)> realTruncate64{"truncate64"};
constinit Real<int(int, const char *, const timespec *, int)> realUtimensAt{"utimensat"};
constinit Real<ssize_t(const char *, char *, size_t)> realReadlink{"readlink"};
constinit Real<ssize_t(int, const char *, char *, size_t)> realReadlinkAt{"readlinkat"};
constinit Real<ssize_t(const char *, char *, size_t, size_t)> realReadlinkChk{"__readlink_chk"};
constinit Real<char *(const char *, char *)> realRealpath{"realpath"};
constinit Real<char *(const char *, char *, size_t)> realRealpathChk{"__realpath_chk"};
constinit Real<int(char *)> realMkstemp{"mkstemp"};
constinit Real<int(char *)> realMkstemp64{"mkstemp64"};
constinit Real<int(char *, int)> realMkstemps{"mkstemps"};
constinit Real<int(char *, int)> realMkostemp{"mkostemp"};
constinit Real<int(char *, int)> realMkostemp64{"mkostemp64"};
constinit Real<key_t(const char *, int)> realFtok{"ftok"};

// Removes the machine's directory from the target of a link. call reads the link into a buffer.
template <class ReadCall> ssize_t readLinkThrough(char *to, size_t size, ReadCall call)
{
    if (currentMachine() == nullptr || thisThread.inside != 0) {
        return call(to, size);
    }
    char text[PATH_MAX];
    const ssize_t length = call(text, sizeof text);
    if (length < 0) {
        return length;
    }
    const size_t visible = std::min(withoutRoot(text, static_cast<size_t>(length)), size);
    std::memcpy(to, text, visible);
    return static_cast<ssize_t>(visible);
}

char *visiblePath(char *text)
{
    if (text != nullptr && thisThread.inside == 0) {
        text[withoutRoot(text, std::strlen(text))] = '\0';
        if (*text == '\0') {
            std::strcpy(text, "/");
        }
    }
    return text;
}

// Fills in the template of a temporary file: the generated name is copied back to the caller's.
template <class MakeCall> int temporaryThrough(char *path, bool product, MakeCall call)
{
    const Translated translated(path);
    if (!translated.isInMachine()) {
        return noteOpened(call(path), translated, product);
    }
    char copy[Translated::kLongest];
    std::strcpy(copy, translated.c_str());
    const int descriptor = call(copy);
    std::strcpy(std::strrchr(path, '/'), std::strrchr(copy, '/')); // the last name has the same length in both
    return noteOpened(descriptor, translated, product);
}

} // namespace

SIM_EXPORT int simAccess(const char *path, int mode) __asm__("access");
SIM_EXPORT int simFaccessAt(int directory, const char *path, int mode, int flags) __asm__("faccessat");
SIM_EXPORT int simUnlink(const char *path) __asm__("unlink");
SIM_EXPORT int simUnlinkAt(int directory, const char *path, int flags) __asm__("unlinkat");
SIM_EXPORT int simRemove(const char *path) __asm__("remove");
SIM_EXPORT int simRename(const char *from, const char *to) __asm__("rename");
SIM_EXPORT int simRenameAt(int fromDirectory, const char *from, int toDirectory, const char *to) __asm__("renameat");
SIM_EXPORT int simRenameAt2(int fromDirectory, const char *from, int toDirectory, const char *to,
                            unsigned flags) __asm__("renameat2");
SIM_EXPORT int simMkdir(const char *path, mode_t mode) __asm__("mkdir");
SIM_EXPORT int simMkdirAt(int directory, const char *path, mode_t mode) __asm__("mkdirat");
SIM_EXPORT int simMkfifo(const char *path, mode_t mode) __asm__("mkfifo");
SIM_EXPORT int simRmdir(const char *path) __asm__("rmdir");
SIM_EXPORT int simChmod(const char *path, mode_t mode) __asm__("chmod");
SIM_EXPORT int simChown(const char *path, uid_t user, gid_t group) __asm__("chown");
SIM_EXPORT int simLink(const char *from, const char *to) __asm__("link");
SIM_EXPORT int simSymlink(const char *target, const char *path) __asm__("symlink");
SIM_EXPORT int simTruncate(const char *path, off_t length) __asm__("truncate");
SIM_EXPORT int simTruncate64(const char *path, off_t length) __asm__("truncate64");
SIM_EXPORT int simUtimensAt(int directory, const char *path, const timespec *times, int flags) __asm__("utimensat");
SIM_EXPORT ssize_t simReadlink(const char *path, char *to, size_t size) __asm__("readlink");
SIM_EXPORT ssize_t simReadlinkAt(int directory, const char *path, char *to, size_t size) __asm__("readlinkat");
SIM_EXPORT ssize_t simReadlinkChk(const char *path, char *to, size_t size, size_t room) __asm__("__readlink_chk");
SIM_EXPORT char *simRealpath(const char *path, char *to) __asm__("realpath");
SIM_EXPORT char *simRealpathChk(const char *path, char *to, size_t room) __asm__("__realpath_chk");
SIM_EXPORT int simMkstemp(char *path) __asm__("mkstemp");
SIM_EXPORT int simMkstemp64(char *path) __asm__("mkstemp64");
SIM_EXPORT int simMkstemps(char *path, int suffix) __asm__("mkstemps");
SIM_EXPORT int simMkostemp(char *path, int flags) __asm__("mkostemp");
SIM_EXPORT int simMkostemp64(char *path, int flags) __asm__("mkostemp64");
SIM_EXPORT key_t simFtok(const char *path, int project) __asm__("ftok");

extern "C" int simAccess(const char *path, int mode)
{
    return SIM_FAILS(stat, "access") ? failedWith(EIO) : realAccess(Translated(path).c_str(), mode);
}

extern "C" int simFaccessAt(int directory, const char *path, int mode, int flags)
{
    return SIM_FAILS(stat, "faccessat") ? failedWith(EIO)
                                        : realFaccessAt(directory, Translated(path).c_str(), mode, flags);
}

extern "C" int simUnlink(const char *path)
{
    return realUnlink(Translated(path).c_str());
}

extern "C" int simUnlinkAt(int directory, const char *path, int flags)
{
    return realUnlinkAt(directory, Translated(path).c_str(), flags);
}

extern "C" int simRemove(const char *path)
{
    return realRemove(Translated(path).c_str());
}

extern "C" int simRename(const char *from, const char *to)
{
    return SIM_FAILS(write, "rename") ? failedWith(EIO) : realRename(Translated(from).c_str(), Translated(to).c_str());
}

extern "C" int simRenameAt(int fromDirectory, const char *from, int toDirectory, const char *to)
{
    return SIM_FAILS(write, "renameat")
               ? failedWith(EIO)
               : realRenameAt(fromDirectory, Translated(from).c_str(), toDirectory, Translated(to).c_str());
}

extern "C" int simRenameAt2(int fromDirectory, const char *from, int toDirectory, const char *to, unsigned flags)
{
    return SIM_FAILS(write, "renameat2")
               ? failedWith(EIO)
               : realRenameAt2(fromDirectory, Translated(from).c_str(), toDirectory, Translated(to).c_str(), flags);
}

extern "C" int simMkdir(const char *path, mode_t mode)
{
    return realMkdir(Translated(path).c_str(), mode);
}

extern "C" int simMkdirAt(int directory, const char *path, mode_t mode)
{
    return realMkdirAt(directory, Translated(path).c_str(), mode);
}

extern "C" int simMkfifo(const char *path, mode_t mode)
{
    return realMkfifo(Translated(path).c_str(), mode);
}

extern "C" int simRmdir(const char *path)
{
    return realRmdir(Translated(path).c_str());
}

extern "C" int simChmod(const char *path, mode_t mode)
{
    return realChmod(Translated(path).c_str(), mode);
}

extern "C" int simChown(const char *path, uid_t user, gid_t group)
{
    return realChown(Translated(path).c_str(), user, group);
}

extern "C" int simLink(const char *from, const char *to)
{
    return realLink(Translated(from).c_str(), Translated(to).c_str());
}

extern "C" int simSymlink(const char *target, const char *path)
{
    return realSymlink(Translated(target).c_str(), Translated(path).c_str());
}

extern "C" int simTruncate(const char *path, off_t length)
{
    return realTruncate(Translated(path).c_str(), length);
}

extern "C" int simTruncate64(const char *path, off_t length)
{
    return realTruncate64(Translated(path).c_str(), length);
}

extern "C" int simUtimensAt(int directory, const char *path, const timespec *times, int flags)
{
    return realUtimensAt(directory, Translated(path).c_str(), times, flags);
}

extern "C" ssize_t simReadlink(const char *path, char *to, size_t size)
{
    if (SIM_FAILS(stat, "readlink")) {
        return failedWith<ssize_t>(EIO);
    }
    const Translated at(path);
    return readLinkThrough(to, size, [&](char *text, size_t room) { return realReadlink(at.c_str(), text, room); });
}

extern "C" ssize_t simReadlinkAt(int directory, const char *path, char *to, size_t size)
{
    if (SIM_FAILS(stat, "readlinkat")) {
        return failedWith<ssize_t>(EIO);
    }
    const Translated at(path);
    return readLinkThrough(to, size,
                           [&](char *text, size_t room) { return realReadlinkAt(directory, at.c_str(), text, room); });
}

extern "C" ssize_t simReadlinkChk(const char *path, char *to, size_t size, size_t room)
{
    if (SIM_FAILS(stat, "__readlink_chk")) {
        return failedWith<ssize_t>(EIO);
    }
    if (size > room) {
        return realReadlinkChk(path, to, size, room); // ends the process, as intended
    }
    const Translated at(path);
    return readLinkThrough(to, size, [&](char *text, size_t space) { return realReadlink(at.c_str(), text, space); });
}

extern "C" char *simRealpath(const char *path, char *to)
{
    return visiblePath(realRealpath(Translated(path).c_str(), to));
}

extern "C" char *simRealpathChk(const char *path, char *to, size_t room)
{
    return visiblePath(realRealpathChk(Translated(path).c_str(), to, room));
}

extern "C" int simMkstemp(char *path)
{
    return SIM_FAILS(open, "mkstemp")
               ? failedWith(EMFILE)
               : temporaryThrough(path, SIM_IS_PRODUCT("mkstemp"), [](char *to) { return realMkstemp(to); });
}

extern "C" int simMkstemp64(char *path)
{
    return SIM_FAILS(open, "mkstemp64")
               ? failedWith(EMFILE)
               : temporaryThrough(path, SIM_IS_PRODUCT("mkstemp64"), [](char *to) { return realMkstemp64(to); });
}

extern "C" int simMkstemps(char *path, int suffix)
{
    return SIM_FAILS(open, "mkstemps") ? failedWith(EMFILE)
                                       : temporaryThrough(path, SIM_IS_PRODUCT("mkstemps"),
                                                          [suffix](char *to) { return realMkstemps(to, suffix); });
}

extern "C" int simMkostemp(char *path, int flags)
{
    return SIM_FAILS(open, "mkostemp") ? failedWith(EMFILE)
                                       : temporaryThrough(path, SIM_IS_PRODUCT("mkostemp"),
                                                          [flags](char *to) { return realMkostemp(to, flags); });
}

extern "C" int simMkostemp64(char *path, int flags)
{
    return SIM_FAILS(open, "mkostemp64") ? failedWith(EMFILE)
                                         : temporaryThrough(path, SIM_IS_PRODUCT("mkostemp64"),
                                                            [flags](char *to) { return realMkostemp64(to, flags); });
}

extern "C" key_t simFtok(const char *path, int project)
{
    return SIM_FAILS(segment, "ftok") ? failedWith<key_t>(EIO) : realFtok(Translated(path).c_str(), project);
}

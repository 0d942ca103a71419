// SPDX-License-Identifier: Apache-2.0
// stat and its variants. A device node is a plain file in the machine's directory; its status is changed to a device's.
#include "sim/interpose.h"
#include "sim/node_names.h"

#include <fcntl.h>
#include <string_view>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

using namespace sim;

namespace {

using StatFunction = int(const char *, struct stat *);
using VersionedStat = int(int, const char *, struct stat *);

constinit Real<StatFunction> realStat{"stat"};
constinit Real<StatFunction> realStat64{"stat64"};
constinit Real<StatFunction> realLstat{"lstat"};
constinit Real<StatFunction> realLstat64{"lstat64"};
constinit Real<int(int, struct stat *)> realFstat{"fstat"};
constinit Real<int(int, struct stat *)> realFstat64{"fstat64"};
constinit Real<int(int, const char *, struct stat *, int)> realFstatAt{"fstatat"};
constinit Real<int(int, const char *, struct stat *, int)> realFstatAt64{"fstatat64"};
constinit Real<int(int, const char *, int, unsigned, struct statx *)> realStatx{"statx"};
constinit Real<VersionedStat> realXstat{"__xstat"};
constinit Real<VersionedStat> realXstat64{"__xstat64"};
constinit Real<VersionedStat> realLxstat{"__lxstat"};
constinit Real<VersionedStat> realLxstat64{"__lxstat64"};
constinit Real<int(int, int, struct stat *)> realFxstat{"__fxstat"};
constinit Real<int(int, int, struct stat *)> realFxstat64{"__fxstat64"};
constinit Real<int(int, int, const char *, struct stat *, int)> realFxstatAt{"__fxstatat"};
constinit Real<int(int, int, const char *, struct stat *, int)> realFxstatAt64{"__fxstatat64"};

// The node number of the device at a path; major 0 if there is none.
NodeNumber deviceNumberOf(const char *path)
{
    const Device *device = deviceAt(path);
    const std::string_view name = path;
    return device == nullptr ? NodeNumber{} : nodeNumber(name.substr(name.rfind('/') + 1));
}

void makeDevice(const NodeNumber &number, struct stat *status)
{
    if (number.major != 0) {
        status->st_mode = (number.block ? S_IFBLK : S_IFCHR) | 0660;
        status->st_rdev = makedev(number.major, number.minor);
    }
}

template <class StatCall> int statThrough(const char *path, struct stat *status, StatCall call)
{
    const Translated translated(path);
    const int result = call(translated.c_str());
    if (result == 0 && translated.isInMachine()) {
        const Inside inside;
        makeDevice(deviceNumberOf(translated.c_str()), status);
    }
    return result;
}

template <class StatCall> int statDescriptor(int descriptor, struct stat *status, StatCall call)
{
    const int result = call();
    if (const Device *device = deviceOf(descriptor); result == 0 && device != nullptr) {
        const Inside inside;
        makeDevice(nodeNumber(nodeNameOf(*device)), status);
    }
    return result;
}

} // namespace

SIM_EXPORT int simStat(const char *path, struct stat *status) __asm__("stat");
SIM_EXPORT int simStat64(const char *path, struct stat *status) __asm__("stat64");
SIM_EXPORT int simLstat(const char *path, struct stat *status) __asm__("lstat");
SIM_EXPORT int simLstat64(const char *path, struct stat *status) __asm__("lstat64");
SIM_EXPORT int simFstat(int descriptor, struct stat *status) __asm__("fstat");
SIM_EXPORT int simFstat64(int descriptor, struct stat *status) __asm__("fstat64");
SIM_EXPORT int simFstatAt(int directory, const char *path, struct stat *status, int flags) __asm__("fstatat");
SIM_EXPORT int simFstatAt64(int directory, const char *path, struct stat *status, int flags) __asm__("fstatat64");
SIM_EXPORT int simStatx(int directory, const char *path, int flags, unsigned mask,
                        struct statx *status) __asm__("statx");
SIM_EXPORT int simXstat(int version, const char *path, struct stat *status) __asm__("__xstat");
SIM_EXPORT int simXstat64(int version, const char *path, struct stat *status) __asm__("__xstat64");
SIM_EXPORT int simLxstat(int version, const char *path, struct stat *status) __asm__("__lxstat");
SIM_EXPORT int simLxstat64(int version, const char *path, struct stat *status) __asm__("__lxstat64");
SIM_EXPORT int simFxstat(int version, int descriptor, struct stat *status) __asm__("__fxstat");
SIM_EXPORT int simFxstat64(int version, int descriptor, struct stat *status) __asm__("__fxstat64");
SIM_EXPORT int simFxstatAt(int version, int directory, const char *path, struct stat *status,
                           int flags) __asm__("__fxstatat");
SIM_EXPORT int simFxstatAt64(int version, int directory, const char *path, struct stat *status,
                             int flags) __asm__("__fxstatat64");

extern "C" int simStat(const char *path, struct stat *status)
{
    return SIM_FAILS(stat, "stat") ? failedWith(EIO)
                                   : statThrough(path, status, [&](const char *to) { return realStat(to, status); });
}

extern "C" int simStat64(const char *path, struct stat *status)
{
    return SIM_FAILS(stat, "stat64")
               ? failedWith(EIO)
               : statThrough(path, status, [&](const char *to) { return realStat64(to, status); });
}

extern "C" int simLstat(const char *path, struct stat *status)
{
    return SIM_FAILS(stat, "lstat") ? failedWith(EIO)
                                    : statThrough(path, status, [&](const char *to) { return realLstat(to, status); });
}

extern "C" int simLstat64(const char *path, struct stat *status)
{
    return SIM_FAILS(stat, "lstat64")
               ? failedWith(EIO)
               : statThrough(path, status, [&](const char *to) { return realLstat64(to, status); });
}

extern "C" int simFstat(int descriptor, struct stat *status)
{
    return SIM_FAILS(stat, "fstat") ? failedWith(EIO)
                                    : statDescriptor(descriptor, status, [&] { return realFstat(descriptor, status); });
}

extern "C" int simFstat64(int descriptor, struct stat *status)
{
    return SIM_FAILS(stat, "fstat64")
               ? failedWith(EIO)
               : statDescriptor(descriptor, status, [&] { return realFstat64(descriptor, status); });
}

extern "C" int simFstatAt(int directory, const char *path, struct stat *status, int flags)
{
    return SIM_FAILS(stat, "fstatat")
               ? failedWith(EIO)
               : statThrough(path, status, [&](const char *to) { return realFstatAt(directory, to, status, flags); });
}

extern "C" int simFstatAt64(int directory, const char *path, struct stat *status, int flags)
{
    return SIM_FAILS(stat, "fstatat64")
               ? failedWith(EIO)
               : statThrough(path, status, [&](const char *to) { return realFstatAt64(directory, to, status, flags); });
}

extern "C" int simStatx(int directory, const char *path, int flags, unsigned mask, struct statx *status)
{
    if (SIM_FAILS(stat, "statx")) {
        return failedWith(EIO);
    }
    const Translated translated(path);
    const int result = realStatx(directory, translated.c_str(), flags, mask, status);
    if (result == 0 && translated.isInMachine()) {
        const Inside inside;
        if (const NodeNumber number = deviceNumberOf(translated.c_str()); number.major != 0) {
            status->stx_mode = static_cast<uint16_t>((number.block ? S_IFBLK : S_IFCHR) | 0660);
            status->stx_rdev_major = number.major;
            status->stx_rdev_minor = number.minor;
        }
    }
    return result;
}

// For programs that were built with a C library older than 2.33, and for the thread sanitizer.
extern "C" int simXstat(int version, const char *path, struct stat *status)
{
    return SIM_FAILS(stat, "__xstat")
               ? failedWith(EIO)
               : statThrough(path, status, [&](const char *to) { return realXstat(version, to, status); });
}

extern "C" int simXstat64(int version, const char *path, struct stat *status)
{
    return SIM_FAILS(stat, "__xstat64")
               ? failedWith(EIO)
               : statThrough(path, status, [&](const char *to) { return realXstat64(version, to, status); });
}

extern "C" int simLxstat(int version, const char *path, struct stat *status)
{
    return SIM_FAILS(stat, "__lxstat")
               ? failedWith(EIO)
               : statThrough(path, status, [&](const char *to) { return realLxstat(version, to, status); });
}

extern "C" int simLxstat64(int version, const char *path, struct stat *status)
{
    return SIM_FAILS(stat, "__lxstat64")
               ? failedWith(EIO)
               : statThrough(path, status, [&](const char *to) { return realLxstat64(version, to, status); });
}

extern "C" int simFxstat(int version, int descriptor, struct stat *status)
{
    return SIM_FAILS(stat, "__fxstat")
               ? failedWith(EIO)
               : statDescriptor(descriptor, status, [&] { return realFxstat(version, descriptor, status); });
}

extern "C" int simFxstat64(int version, int descriptor, struct stat *status)
{
    return SIM_FAILS(stat, "__fxstat64")
               ? failedWith(EIO)
               : statDescriptor(descriptor, status, [&] { return realFxstat64(version, descriptor, status); });
}

extern "C" int simFxstatAt(int version, int directory, const char *path, struct stat *status, int flags)
{
    return SIM_FAILS(stat, "__fxstatat") ? failedWith(EIO) : statThrough(path, status, [&](const char *to) {
        return realFxstatAt(version, directory, to, status, flags);
    });
}

extern "C" int simFxstatAt64(int version, int directory, const char *path, struct stat *status, int flags)
{
    return SIM_FAILS(stat, "__fxstatat64") ? failedWith(EIO) : statThrough(path, status, [&](const char *to) {
        return realFxstatAt64(version, directory, to, status, flags);
    });
}

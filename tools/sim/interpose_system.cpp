// SPDX-License-Identifier: Apache-2.0
// ioctl, uname, shared-memory segments, loading of libraries.
#include "sim/interpose.h"

#include <atomic>
#include <cstdarg>
#include <cstdio>
#include <dlfcn.h>
#include <mutex>
#include <set>
#include <sys/shm.h>
#include <sys/utsname.h>

using namespace sim;

namespace {

constinit Real<int(int, unsigned long, void *)> realIoctl{"ioctl"};
constinit Real<int(utsname *)> realUname{"uname"};
constinit Real<int(key_t, size_t, int)> realShmget{"shmget"};
constinit Real<void *(int, const void *, int)> realShmat{"shmat"};
constinit Real<int(const void *)> realShmdt{"shmdt"};
constinit Real<int(int, int, shmid_ds *)> realShmctl{"shmctl"};
constinit Real<void *(const char *, int)> realDlopen{"dlopen"};
constinit Real<int(void *)> realDlclose{"dlclose"};

// Segments that the product created and that were not removed. Never destroyed: used until the process ends.
constinit std::mutex segmentsGuard;
std::set<int> &segments()
{
    static auto *const made = new std::set<int>;
    return *made;
}

int answerTo(int descriptor, unsigned long request, void *argument)
{
    Device *device = deviceOf(descriptor);
    if (device == nullptr) {
        return realIoctl(descriptor, request, argument);
    }
    const Inside inside;
    const OwnTime own;
    return answer(*device, request, argument);
}

constinit std::atomic<DeviceListener *> currentListener{nullptr};

} // namespace

namespace sim {

void listen(DeviceListener *listener)
{
    currentListener = listener;
}

DeviceListener *deviceListener()
{
    return currentListener;
}

int64_t liveSegments()
{
    const std::lock_guard held(segmentsGuard);
    return static_cast<int64_t>(segments().size());
}

} // namespace sim

SIM_EXPORT int simIoctl(int descriptor, unsigned long request, ...) __asm__("ioctl");
SIM_EXPORT int simUname(utsname *name) __asm__("uname");
SIM_EXPORT int simShmget(key_t key, size_t size, int flags) __asm__("shmget");
SIM_EXPORT void *simShmat(int id, const void *address, int flags) __asm__("shmat");
SIM_EXPORT int simShmdt(const void *address) __asm__("shmdt");
SIM_EXPORT int simShmctl(int id, int command, shmid_ds *buffer) __asm__("shmctl");
SIM_EXPORT void *simDlopen(const char *path, int mode) __asm__("dlopen");
SIM_EXPORT int simDlclose(void *handle) __asm__("dlclose");

extern "C" int simIoctl(int descriptor, unsigned long request, ...)
{
    va_list arguments;
    va_start(arguments, request);
    void *argument = va_arg(arguments, void *);
    va_end(arguments);
    if (SIM_FAILS(ioctl, "ioctl")) {
        return failedWith(EIO);
    }
    const int result = answerTo(descriptor, request, argument);
    if (DeviceListener *const hears = thisThread.inside == 0 ? deviceListener() : nullptr) {
        const int error = errno;
        hears->answered(descriptor, request, argument, result, result < 0 ? error : 0);
        errno = error;
    }
    return result;
}

extern "C" int simUname(utsname *name)
{
    if (SIM_FAILS(uname, "uname")) {
        return failedWith(EFAULT);
    }
    const int result = realUname(name);
    if (const MachineState *machine = currentMachine(); result == 0 && machine != nullptr && thisThread.inside == 0) {
        const Inside inside;
        const std::lock_guard held(model());
        std::snprintf(name->release, sizeof name->release, "%s", machine->description.kernel.c_str());
    }
    return result;
}

extern "C" int simShmget(key_t key, size_t size, int flags)
{
    if (SIM_FAILS(segment, "shmget")) {
        return failedWith(ENOSPC);
    }
    const int id = realShmget(key, size, flags);
    if (id != -1 && (flags & IPC_EXCL) != 0 && SIM_IS_PRODUCT("shmget")) {
        const std::lock_guard held(segmentsGuard);
        segments().insert(id);
    }
    return id;
}

extern "C" void *simShmat(int id, const void *address, int flags)
{
    return SIM_FAILS(segment, "shmat") ? failedWith(ENOMEM, reinterpret_cast<void *>(-1))
                                       : realShmat(id, address, flags);
}

// Detaching and removing fail as if another process had done it before: the segment is detached or removed all the
// same.
extern "C" int simShmdt(const void *address)
{
    const bool failed = SIM_FAILS(segment, "shmdt");
    const int result = realShmdt(address);
    return failed ? failedWith(EINVAL) : result;
}

extern "C" int simShmctl(int id, int command, shmid_ds *buffer)
{
    const bool failed = SIM_FAILS(segment, "shmctl");
    if (failed && command != IPC_RMID) {
        return failedWith(EPERM);
    }
    const int result = realShmctl(id, command, buffer);
    if (command == IPC_RMID) {
        const std::lock_guard held(segmentsGuard);
        segments().erase(id);
    }
    return failed ? failedWith(EIDRM) : result;
}

extern "C" void *simDlopen(const char *path, int mode)
{
    void *handle = realDlopen(Translated(path).c_str(), mode);
    if (handle != nullptr && thisThread.inside == 0) {
        objectsChanged();
    }
    return handle;
}

extern "C" int simDlclose(void *handle)
{
    const int result = realDlclose(handle);
    if (thisThread.inside == 0) {
        objectsChanged();
    }
    return result;
}

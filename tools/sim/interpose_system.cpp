// SPDX-License-Identifier: Apache-2.0
// ioctl, uname, sleeping, shared-memory segments, loading of libraries.
#include "sim/acting.h"
#include "sim/interpose.h"
#include "sim/sanitizers.h"

#include <atomic>
#include <cstdarg>
#include <cstdio>
#include <ctime>
#include <dlfcn.h>
#include <mutex>
#include <pthread.h>
#include <sched.h>
#include <set>
#include <sys/shm.h>
#include <sys/utsname.h>
#include <unistd.h>

using namespace sim;

namespace {

constinit Real<int(int, unsigned long, void *)> realIoctl{"ioctl"};
constinit Real<int(utsname *)> realUname{"uname"};
constinit Real<unsigned(unsigned)> realSleep{"sleep"};
constinit Real<int(useconds_t)> realUsleep{"usleep"};
constinit Real<int(const timespec *, timespec *)> realNanosleep{"nanosleep"};
constinit Real<int(clockid_t, int, const timespec *, timespec *)> realClockNanosleep{"clock_nanosleep"};
constinit Real<int(key_t, size_t, int)> realShmget{"shmget"};
constinit Real<void *(int, const void *, int)> realShmat{"shmat"};
constinit Real<int(const void *)> realShmdt{"shmdt"};
constinit Real<int(int, int, shmid_ds *)> realShmctl{"shmctl"};
constinit Real<void *(const char *, int)> realDlopen{"dlopen"};
constinit Real<int(void *)> realDlclose{"dlclose"};

// Segments that the product made and nobody removed. Never destroyed: it is asked for until the process ends.
constinit std::mutex segmentsGuard;
std::set<int> &segments()
{
    static auto *const made = new std::set<int>;
    return *made;
}

constinit std::atomic<bool> skipping{false};
constinit std::atomic<int64_t> sleptNanoseconds{0};
constinit std::atomic<unsigned> shortening{1};

constexpr int64_t kNanosecondsPerSecond = 1000000000;

int64_t nanosecondsOf(const timespec *time)
{
    return time == nullptr ? 0 : time->tv_sec * kNanosecondsPerSecond + time->tv_nsec;
}

// Counts a sleep of the product; whether it is to take no time. Such a one still is where a thread can be cancelled.
bool skips(bool product, int64_t nanoseconds)
{
    if (!product || !skipping) {
        return false;
    }
    sleptNanoseconds += nanoseconds;
    const Inside inside; // the sleep was counted as a cancellation point, this is none of the product's
    pthread_testcancel();
    sched_yield();
    return true;
}

} // namespace

namespace sim {

void skipSleeps(bool skip)
{
    skipping = skip;
    sleptNanoseconds = 0;
}

void shortenSleeps(unsigned times)
{
    shortening = times == 0 ? 1 : times;
}

double sleptSeconds()
{
    return static_cast<double>(sleptNanoseconds) / static_cast<double>(kNanosecondsPerSecond);
}

int64_t liveSegments()
{
    const std::lock_guard held(segmentsGuard);
    return static_cast<int64_t>(segments().size());
}

} // namespace sim

SIM_EXPORT int simIoctl(int descriptor, unsigned long request, ...) __asm__("ioctl");
SIM_EXPORT int simUname(utsname *name) __asm__("uname");
SIM_EXPORT unsigned simSleep(unsigned seconds) __asm__("sleep");
SIM_EXPORT int simUsleep(useconds_t microseconds) __asm__("usleep");
SIM_EXPORT int simNanosleep(const timespec *time, timespec *left) __asm__("nanosleep");
SIM_EXPORT int simClockNanosleep(clockid_t clock, int flags, const timespec *time,
                                 timespec *left) __asm__("clock_nanosleep");
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
    if (SIM_STRIKES(ioctl, "ioctl")) {
        return failedWith(EIO);
    }
    Device *device = deviceOf(descriptor);
    if (device == nullptr) {
        return realIoctl(descriptor, request, argument);
    }
    const Inside inside;
    const OwnTime own;
    return answer(*device, request, argument);
}

extern "C" int simUname(utsname *name)
{
    if (SIM_STRIKES(uname, "uname")) {
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

extern "C" unsigned simSleep(unsigned seconds)
{
    const bool product = SIM_IS_PRODUCT("sleep");
    static_cast<void>(SIM_STRIKES(cancelPoint, "sleep"));
    if (product && holdsSleeps()) {
        sleepUntilWoken();
        return 0;
    }
    if (skips(product, seconds * kNanosecondsPerSecond)) {
        return 0;
    }
    MayUnwind here;
    const unsigned left = realSleep(seconds);
    here.returned();
    return left;
}

extern "C" int simUsleep(useconds_t microseconds)
{
    static_cast<void>(SIM_STRIKES(cancelPoint, "usleep"));
    const bool product = SIM_IS_PRODUCT("usleep");
    if (skips(product, int64_t(microseconds) * 1000)) {
        return 0;
    }
    return realUsleep(product ? microseconds / shortening.load() : microseconds);
}

extern "C" int simNanosleep(const timespec *time, timespec *left)
{
    static_cast<void>(SIM_STRIKES(cancelPoint, "nanosleep"));
    return skips(SIM_IS_PRODUCT("nanosleep"), nanosecondsOf(time)) ? 0 : realNanosleep(time, left);
}

extern "C" int simClockNanosleep(clockid_t clock, int flags, const timespec *time, timespec *left)
{
    const bool product = SIM_IS_PRODUCT("clock_nanosleep");
    static_cast<void>(SIM_STRIKES(cancelPoint, "clock_nanosleep"));
    if (!product || !skipping) {
        return realClockNanosleep(clock, flags, time, left);
    }
    timespec now{};
    clock_gettime(clock, &now);
    const int64_t length = nanosecondsOf(time) - ((flags & TIMER_ABSTIME) != 0 ? nanosecondsOf(&now) : 0);
    return skips(product, length > 0 ? length : 0) ? 0 : realClockNanosleep(clock, flags, time, left);
}

extern "C" int simShmget(key_t key, size_t size, int flags)
{
    if (SIM_STRIKES(segment, "shmget")) {
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
    return SIM_STRIKES(segment, "shmat") ? failedWith(ENOMEM, reinterpret_cast<void *>(-1))
                                         : realShmat(id, address, flags);
}

// Detaching and removing fail because somebody did it before: what they are called for is done all the same.
extern "C" int simShmdt(const void *address)
{
    const bool struck = SIM_STRIKES(segment, "shmdt");
    const int result = realShmdt(address);
    return struck ? failedWith(EINVAL) : result;
}

extern "C" int simShmctl(int id, int command, shmid_ds *buffer)
{
    const bool struck = SIM_STRIKES(segment, "shmctl");
    if (struck && command != IPC_RMID) {
        return failedWith(EPERM);
    }
    const int result = realShmctl(id, command, buffer);
    if (command == IPC_RMID) {
        const std::lock_guard held(segmentsGuard);
        segments().erase(id);
    }
    return struck ? failedWith(EIDRM) : result;
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

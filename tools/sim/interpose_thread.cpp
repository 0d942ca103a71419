// SPDX-License-Identifier: Apache-2.0
// Sleeping, and cancellation of threads.
#include "sim/acting.h"
#include "sim/interpose.h"
#include "sim/sanitizers.h"
#include "sim/sleeps.h"

#include <atomic>
#include <cstdint>
#include <ctime>
#include <pthread.h>
#include <sched.h>
#include <unistd.h>

using namespace sim;

namespace {

constinit Real<unsigned(unsigned)> realSleep{"sleep"};
constinit Real<int(useconds_t)> realUsleep{"usleep"};
constinit Real<int(const timespec *, timespec *)> realNanosleep{"nanosleep"};
constinit Real<int(clockid_t, int, const timespec *, timespec *)> realClockNanosleep{"clock_nanosleep"};
constinit Real<void()> realTestCancel{"pthread_testcancel"};
constinit Real<int(pthread_t)> realCancel{"pthread_cancel"};
using ThreadFunction = void *(void *);
constinit Real<int(pthread_t *, const pthread_attr_t *, ThreadFunction *, void *)> realCreate{"pthread_create"};

constinit std::atomic<unsigned> requested{0};
constinit std::atomic<bool> skipping{false};
constinit std::atomic<int64_t> sleptNanoseconds{0};
constinit std::atomic<unsigned> shortening{1};

constexpr int64_t kNanosecondsPerSecond = 1000000000;

int64_t nanosecondsOf(const timespec *time)
{
    return time == nullptr ? 0 : time->tv_sec * kNanosecondsPerSecond + time->tv_nsec;
}

// Counts a sleep of the product. Returns whether it takes no time; it is then still a cancellation point.
bool skips(bool product, int64_t nanoseconds)
{
    if (!product || !skipping) {
        return false;
    }
    addSkippedSleep(nanoseconds);
    return true;
}

} // namespace

namespace sim {

bool skipsSleeps()
{
    return skipping;
}

void addSkippedSleep(int64_t nanoseconds)
{
    sleptNanoseconds += nanoseconds;
    const Inside inside; // the caller has counted the cancellation point
    pthread_testcancel();
    sched_yield();
}

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

unsigned cancelsRequested()
{
    return requested;
}

} // namespace sim

SIM_EXPORT unsigned simSleep(unsigned seconds) __asm__("sleep");
SIM_EXPORT int simUsleep(useconds_t microseconds) __asm__("usleep");
SIM_EXPORT int simNanosleep(const timespec *time, timespec *left) __asm__("nanosleep");
SIM_EXPORT int simClockNanosleep(clockid_t clock, int flags, const timespec *time,
                                 timespec *left) __asm__("clock_nanosleep");
SIM_EXPORT void simTestCancel() __asm__("pthread_testcancel");
SIM_EXPORT int simCreate(pthread_t *thread, const pthread_attr_t *attributes, ThreadFunction *function,
                         void *argument) __asm__("pthread_create");
SIM_EXPORT int simCancel(pthread_t thread) __asm__("pthread_cancel");

extern "C" unsigned simSleep(unsigned seconds)
{
    const bool product = SIM_IS_PRODUCT("sleep");
    static_cast<void>(SIM_FAILS(cancelPoint, "sleep"));
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
    static_cast<void>(SIM_FAILS(cancelPoint, "usleep"));
    const bool product = SIM_IS_PRODUCT("usleep");
    if (skips(product, int64_t(microseconds) * 1000)) {
        return 0;
    }
    return realUsleep(product ? microseconds / shortening.load() : microseconds);
}

extern "C" int simNanosleep(const timespec *time, timespec *left)
{
    static_cast<void>(SIM_FAILS(cancelPoint, "nanosleep"));
    return skips(SIM_IS_PRODUCT("nanosleep"), nanosecondsOf(time)) ? 0 : realNanosleep(time, left);
}

extern "C" int simClockNanosleep(clockid_t clock, int flags, const timespec *time, timespec *left)
{
    const bool product = SIM_IS_PRODUCT("clock_nanosleep");
    static_cast<void>(SIM_FAILS(cancelPoint, "clock_nanosleep"));
    if (!product || !skipping) {
        return realClockNanosleep(clock, flags, time, left);
    }
    timespec now{};
    clock_gettime(clock, &now);
    const int64_t length = nanosecondsOf(time) - ((flags & TIMER_ABSTIME) != 0 ? nanosecondsOf(&now) : 0);
    return skips(product, length > 0 ? length : 0) ? 0 : realClockNanosleep(clock, flags, time, left);
}

extern "C" void simTestCancel()
{
    static_cast<void>(SIM_FAILS(cancelPoint, "pthread_testcancel")); // cannot fail
    MayUnwind here;
    realTestCancel();
    here.returned();
}

extern "C" int simCancel(pthread_t thread)
{
    const bool product = SIM_IS_PRODUCT("pthread_cancel");
    const int result = realCancel(thread);
    requested += product && result == 0 ? 1 : 0;
    return result;
}

extern "C" int simCreate(pthread_t *thread, const pthread_attr_t *attributes, ThreadFunction *function, void *argument)
{
    return SIM_FAILS(thread, "pthread_create") ? EAGAIN : realCreate(thread, attributes, function, argument);
}

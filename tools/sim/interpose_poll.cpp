// SPDX-License-Identifier: Apache-2.0
// Waiting on descriptors: a sleep of the product like any other, which an event ends.
#include "sim/acting.h"
#include "sim/interpose.h"
#include "sim/sanitizers.h"
#include "sim/sleeps.h"
#include "sim/uevents.h"

#include <algorithm>
#include <cstdint>
#include <ctime>
#include <optional>
#include <poll.h>
#include <vector>

using namespace sim;

namespace {

using PpollFunction = int(pollfd *, nfds_t, const timespec *, const sigset_t *);

constinit Real<PpollFunction> realPpoll{"ppoll"};

constexpr int64_t kNanosecondsPerSecond = 1000000000;

int64_t monotonic()
{
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return now.tv_sec * kNanosecondsPerSecond + now.tv_nsec;
}

struct Wait {
    pollfd *waits;
    nfds_t count;
    std::optional<int64_t> nanoseconds; // nothing: for ever
    const sigset_t *mask;
};

int waitReally(pollfd *waits, nfds_t count, std::optional<int64_t> nanoseconds, const sigset_t *mask)
{
    const timespec time{nanoseconds.value_or(0) / kNanosecondsPerSecond,
                        nanoseconds.value_or(0) % kNanosecondsPerSecond};
    MayUnwind here;
    const int ready = realPpoll(waits, count, nanoseconds ? &time : nullptr, mask);
    here.returned();
    return ready;
}

// Waits with one more descriptor. Returns the number of the caller's that are ready; other is whether that one is.
int waitWith(int descriptor, const Wait &wait, std::optional<int64_t> nanoseconds, bool &other)
{
    std::vector<pollfd> all(wait.waits, wait.waits + wait.count);
    all.push_back({descriptor, POLLIN, 0});
    const int ready = waitReally(all.data(), all.size(), nanoseconds, wait.mask);
    other = ready > 0 && all.back().revents != 0;
    std::copy_n(all.begin(), wait.count, wait.waits);
    return ready > 0 && other ? ready - 1 : ready;
}

int waitUntilWoken(const Wait &wait)
{
    const WokenByDescriptor sleeper;
    bool woken = false;
    return waitWith(sleeper.descriptor(), wait, std::nullopt, woken);
}

// A preloaded process waits for events: a change of its description file makes some.
int waitFollowing(int watch, const Wait &wait)
{
    const int64_t end = monotonic() + wait.nanoseconds.value_or(0);
    for (;;) {
        bool changed = false;
        const std::optional<int64_t> left =
            wait.nanoseconds ? std::optional(std::max<int64_t>(end - monotonic(), 0)) : std::nullopt;
        const int ready = waitWith(watch, wait, left, changed);
        if (ready != 0 || !changed) {
            return ready;
        }
        descriptionChanged();
    }
}

int waitThrough(bool product, const Wait &wait)
{
    const bool sleeps = !wait.nanoseconds || *wait.nanoseconds > 0;
    if (product && sleeps && holdsSleeps()) {
        return waitUntilWoken(wait);
    }
    if (product && sleeps && wait.nanoseconds && skipsSleeps()) {
        addSkippedSleep(*wait.nanoseconds);
        return waitReally(wait.waits, wait.count, 0, wait.mask);
    }
    const bool onEvents =
        std::any_of(wait.waits, wait.waits + wait.count, [](const pollfd &one) { return isEventSocket(one.fd); });
    const int watch = onEvents && thisThread.inside == 0 ? descriptionWatch() : -1;
    return watch >= 0 ? waitFollowing(watch, wait) : waitReally(wait.waits, wait.count, wait.nanoseconds, wait.mask);
}

std::optional<int64_t> ofMilliseconds(int timeout)
{
    return timeout < 0 ? std::nullopt : std::optional<int64_t>(int64_t{timeout} * 1000000);
}

std::optional<int64_t> ofTime(const timespec *time)
{
    return time == nullptr ? std::nullopt : std::optional(time->tv_sec * kNanosecondsPerSecond + time->tv_nsec);
}

} // namespace

SIM_EXPORT int simPoll(pollfd *waits, nfds_t count, int timeout) __asm__("poll");
SIM_EXPORT int simPollChk(pollfd *waits, nfds_t count, int timeout, size_t room) __asm__("__poll_chk");
SIM_EXPORT int simPpoll(pollfd *waits, nfds_t count, const timespec *time, const sigset_t *mask) __asm__("ppoll");
SIM_EXPORT int simPpollChk(pollfd *waits, nfds_t count, const timespec *time, const sigset_t *mask,
                           size_t room) __asm__("__ppoll_chk");

extern "C" int simPoll(pollfd *waits, nfds_t count, int timeout)
{
    static_cast<void>(SIM_FAILS(cancelPoint, "poll"));
    return waitThrough(SIM_IS_PRODUCT("poll"), {waits, count, ofMilliseconds(timeout), nullptr});
}

extern "C" int simPollChk(pollfd *waits, nfds_t count, int timeout, size_t)
{
    static_cast<void>(SIM_FAILS(cancelPoint, "__poll_chk"));
    return waitThrough(SIM_IS_PRODUCT("__poll_chk"), {waits, count, ofMilliseconds(timeout), nullptr});
}

extern "C" int simPpoll(pollfd *waits, nfds_t count, const timespec *time, const sigset_t *mask)
{
    static_cast<void>(SIM_FAILS(cancelPoint, "ppoll"));
    return waitThrough(SIM_IS_PRODUCT("ppoll"), {waits, count, ofTime(time), mask});
}

extern "C" int simPpollChk(pollfd *waits, nfds_t count, const timespec *time, const sigset_t *mask, size_t)
{
    static_cast<void>(SIM_FAILS(cancelPoint, "__ppoll_chk"));
    return waitThrough(SIM_IS_PRODUCT("__ppoll_chk"), {waits, count, ofTime(time), mask});
}

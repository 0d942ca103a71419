// SPDX-License-Identifier: Apache-2.0
#include "sim/acting.h"

#include "sim/sanitizers.h"
#include "sim/sleeps.h"
#include "sim/thread.h"

#include <atomic>
#include <cerrno>
#include <ctime>
#include <functional>
#include <mutex>
#include <pthread.h>
#include <set>
#include <sys/eventfd.h>
#include <unistd.h>
#include <utility>

namespace sim {

namespace {

constinit std::atomic<unsigned> callsLeft{0}; // calls until the act runs; 0: disarmed
constinit std::atomic<Call> actsAt{Call::count};
constinit std::mutex choosingAct;

// Never destroyed: a thread of the product may still run at exit.
std::function<void()> &chosenAct()
{
    static auto *const act = new std::function<void()>;
    return *act;
}

std::function<void()> takeAct()
{
    const Inside inside;
    const std::lock_guard held(choosingAct);
    return std::exchange(chosenAct(), nullptr);
}

void dropAct(std::function<void()> &&act)
{
    const Inside inside;
    act = nullptr;
}

// Sleepers wait for a change of wakings. A thread can be cancelled while it waits, so the mutex is a plain one with an
// owner that releases it during unwinding.
pthread_mutex_t sleeping = PTHREAD_MUTEX_INITIALIZER;
pthread_cond_t sleepingChanged = PTHREAD_COND_INITIALIZER;
constinit std::atomic<bool> holding{false};
constinit std::atomic<unsigned> begun{
    0}; // atomic all three: the thread sanitizer does not see a cancelled sleeper's lock
constinit std::atomic<unsigned> asleep{0};
constinit std::atomic<unsigned> wakings{0};

class Held {
public:
    Held()
    {
        pthread_mutex_lock(&sleeping);
        lockTaken(&sleeping);
    }
    ~Held()
    {
        lockReleased(&sleeping);
        pthread_mutex_unlock(&sleeping);
    }
    Held(const Held &) = delete;
    Held &operator=(const Held &) = delete;
};

// Descriptors of the sleepers that wait in poll. Never destroyed, as above.
std::set<int> &descriptorSleepers()
{
    static auto *const all = new std::set<int>;
    return *all;
}

// Needs the lock.
void wakeAll()
{
    pthread_cond_broadcast(&sleepingChanged);
    const Inside inside;
    for (const int descriptor : descriptorSleepers()) {
        eventfd_write(descriptor, 1);
    }
}

class Asleep {
public:
    Asleep()
    {
        ++begun;
        ++asleep;
        pthread_cond_broadcast(&sleepingChanged);
    }
    ~Asleep() { --asleep; }
    Asleep(const Asleep &) = delete;
    Asleep &operator=(const Asleep &) = delete;
};

} // namespace

void runActBefore(Call kind)
{
    unsigned left = callsLeft.load(std::memory_order_relaxed);
    if (left == 0 || actsAt.load(std::memory_order_relaxed) != kind) {
        return;
    }
    while (left != 0 && !callsLeft.compare_exchange_weak(left, left - 1)) {
    }
    if (left != 1) {
        return;
    }
    int cancelState = 0;
    pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &cancelState);
    const int error = errno;
    std::function<void()> act = takeAct();
    if (act) {
        act();
    }
    dropAct(std::move(act));
    errno = error;
    pthread_setcancelstate(cancelState, nullptr);
}

void atNth(Call kind, unsigned nth, std::function<void()> act)
{
    const Inside inside;
    callsLeft = 0;
    const std::lock_guard held(choosingAct);
    chosenAct() = std::move(act);
    actsAt = kind;
    callsLeft = nth;
}

bool holdsSleeps()
{
    return holding;
}

void sleepUntilWoken()
{
    const Held held;
    const Asleep here;
    for (const unsigned before = wakings; wakings == before && holding;) {
        MayUnwind waiting;
        lockReleased(&sleeping);
        pthread_cond_wait(&sleepingChanged, &sleeping);
        lockTaken(&sleeping);
        waiting.returned();
    }
}

void holdSleeps(bool hold)
{
    const Held held;
    holding = hold;
    begun = 0;
    if (!hold) {
        wakeAll();
    }
}

void wakeSleepers()
{
    const Held held;
    ++wakings;
    wakeAll();
}

WokenByDescriptor::WokenByDescriptor() : descriptor_(-1)
{
    const Inside inside;
    descriptor_ = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    const Held held;
    descriptorSleepers().insert(descriptor_);
    ++begun;
    ++asleep;
    pthread_cond_broadcast(&sleepingChanged);
}

WokenByDescriptor::~WokenByDescriptor()
{
    int cancelState = 0;
    pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &cancelState); // close() is a cancellation point
    {
        const Inside inside;
        const Held held;
        descriptorSleepers().erase(descriptor_);
        close(descriptor_);
        --asleep;
    }
    pthread_setcancelstate(cancelState, nullptr);
}

unsigned sleepsBegun()
{
    const Held held;
    return begun;
}

unsigned sleepers()
{
    const Held held;
    return asleep;
}

bool awaitSleep(unsigned number, double seconds)
{
    constexpr double kNanoseconds = 1e9;
    timespec end{};
    clock_gettime(CLOCK_REALTIME, &end);
    const double nanoseconds = static_cast<double>(end.tv_nsec) + seconds * kNanoseconds;
    end.tv_sec += static_cast<time_t>(nanoseconds / kNanoseconds);
    end.tv_nsec = static_cast<long>(nanoseconds) % 1000000000;
    const Held held;
    while (begun < number && pthread_cond_timedwait(&sleepingChanged, &sleeping, &end) == 0) {
    }
    return begun >= number;
}

} // namespace sim

// SPDX-License-Identifier: Apache-2.0
#include "runtime/turns.h"

#include "runtime/lock.h"
#include "runtime/options.h"
#include "runtime/progress.h"

#include <algorithm>
#include <cerrno>
#include <limits>

using namespace tavstrg;

namespace {

constexpr std::chrono::seconds kPatience{3}; // without progress
constexpr std::chrono::milliseconds kOneWait{100};

uint64_t foreignAll(uint64_t /*begun*/)
{
    return std::numeric_limits<uint64_t>::max();
}

// One that is running may have read the disks before the request arrived.
uint64_t foreignIfBegun(uint64_t begun)
{
    return begun;
}

int oneMore(int waits)
{
    return waits + 1;
}

// Those since the last progress.
int oneMoreSinceProgress(int waits)
{
    const auto standstill = ProgressClock::now() - lastProgress();
    return standstill >= kPatience ? waits + 1 : std::min(waits + 1, static_cast<int>(standstill / kOneWait));
}

constexpr TurnRules kOfBase = {pollStoreLock, foreignAll, oneMore};
constexpr TurnRules kOfFairRequests = {queueForStoreLock, foreignIfBegun, oneMoreSinceProgress};

} // namespace

const int TurnQueue::kNotYet = EBUSY;
const int TurnQueue::kStuck = ETIMEDOUT;

const TurnRules &tavstrg::turnRules()
{
    return currentOptions().has(Option::fairRequests) ? kOfFairRequests : kOfBase;
}

void TurnQueue::changed()
{
    const std::lock_guard held(guard_);
    changed_.notifyAll();
}

void TurnQueue::join(Waiter &me)
{
    me.joined = ProgressClock::now().time_since_epoch().count();
    Waiter **end = &first_;
    while (*end != nullptr) {
        end = &(*end)->next;
    }
    *end = &me;
}

void TurnQueue::leave(Waiter &me)
{
    Waiter **link = &first_;
    while (*link != &me) {
        link = &(*link)->next;
    }
    *link = me.next;
    changed_.notifyAll(); // another one is the first now
}

bool TurnQueue::sleepUntilChanged(std::unique_lock<std::mutex> &held, const Waiter &me)
{
    const ProgressClock::time_point joined{ProgressClock::duration(me.joined)};
    const ProgressClock::time_point end = std::max(joined, lastProgress()) + kPatience;
    if (ProgressClock::now() >= end) {
        return false;
    }
    changed_.waitUntil(held, end.time_since_epoch().count());
    return true;
}

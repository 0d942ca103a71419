// SPDX-License-Identifier: Apache-2.0
#include "disks/current/current.h"

#include "disks/book/book_file.h"
#include "disks/find/find.h"
#include "disks/identity/identity.h"

#include "runtime/progress.h"
#include "runtime/trace.h"

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <ctime>
#include <new>
#include <pthread.h>
#include <utility>

namespace tavstrg::disks {

// What one pass found, or why it found nothing.
struct Snapshot {
    CurrentState state;
    int64_t taken; // by the monotonic clock, nanoseconds
    int32_t users; // guarded by the lock
    Array<Disk> disks;
};

namespace {

constexpr int64_t kNanoPerMilli = 1000000;
constexpr int64_t kNanoPerSecond = 1000000000;
constexpr int64_t kPatience = 3 * kNanoPerSecond; // with a pass that is stopped

pthread_mutex_t lock = PTHREAD_MUTEX_INITIALIZER; // held for a look and a change only; no other lock is taken with it
pthread_cond_t changed;
pthread_once_t prepared = PTHREAD_ONCE_INIT;

// Guarded by the lock.
Snapshot *last = nullptr; // the store of snapshots is one of its users
bool running = false;     // a thread makes a pass; only that thread uses the book
uint32_t stops = 0;       // calls of forgetCurrentDisks

std::atomic<bool> stopPass = false;

// Not objects with destructors: threads of requests may still run when the process ends.
Book *book = nullptr;    // null: to be begun
bool bookUsable = false; // it may be saved

void prepare()
{
    pthread_condattr_t monotonic;
    pthread_condattr_init(&monotonic);
    pthread_condattr_setclock(&monotonic, CLOCK_MONOTONIC);
    pthread_cond_init(&changed, &monotonic);
    pthread_condattr_destroy(&monotonic);
}

class Held {
public:
    Held()
    {
        pthread_once(&prepared, prepare);
        pthread_mutex_lock(&lock);
    }
    ~Held() { pthread_mutex_unlock(&lock); }
    Held(const Held &) = delete;
    Held &operator=(const Held &) = delete;
};

int64_t now()
{
    return ProgressClock::now().time_since_epoch().count();
}

Snapshot *newSnapshot()
{
    void *const block = std::malloc(sizeof(Snapshot));
    return block == nullptr ? nullptr : new (block) Snapshot{CurrentState::done, 0, 1, {}};
}

// With the lock held.
void leave(Snapshot *snapshot)
{
    if (snapshot != nullptr && --snapshot->users == 0) {
        snapshot->~Snapshot();
        std::free(snapshot);
    }
}

// ---- the book ----

void dropBook()
{
    if (book != nullptr) {
        book->~Book();
        std::free(std::exchange(book, nullptr));
    }
}

// False if memory is short.
bool beginBook(const char *path)
{
    void *const block = std::malloc(sizeof(Book));
    if (block == nullptr) {
        return false;
    }
    book = new (block) Book;
    int error = 0;
    const BookRead read = readBook(path, *book, error);
    bookUsable = read != BookRead::failed;
    if (!bookUsable) {
        TRACE(kFailure, "%s is neither read nor written: errno=[%d]", path, error);
    } else if (read == BookRead::movedAside || read == BookRead::movedNewer) {
        TRACE(kFailure, "%s is %s: moved aside, and begun again", path,
              read == BookRead::movedNewer ? "of a later version" : "damaged");
    }
    return true;
}

// Whether the pass found what the file does not have: a disk that came or went, or another state of one. Readings alone
// are not worth a write at each pass.
bool isNews(const Array<Disk> &disks, const Array<Event> &events, int64_t time)
{
    return !events.empty() || std::any_of(disks.begin(), disks.end(), [time](const Disk &disk) {
        return disk.firstSeen.orElse(0) == time || disk.health.since.orElse(0) == time;
    });
}

// False if memory is short.
bool remember(Array<Disk> &disks, const char *path)
{
    if (book == nullptr && !beginBook(path)) {
        return false;
    }
    Array<Event> events;
    const auto time = static_cast<int64_t>(std::time(nullptr));
    if (!enterPass(*book, disks, time, events)) {
        dropBook();
        return false;
    }
    if (!bookUsable || !isNews(disks, events, time)) {
        return true;
    }
    if (const int error = saveBook(path, *book); error != 0) {
        TRACE(kFailure, "%s could not be saved: errno=[%d]", path, error);
    }
    return true;
}

// ---- a pass ----

CurrentState fill(Array<Disk> &disks, const CurrentLimits &limits)
{
    switch (findDisks(disks)) {
    case FindResult::noMemory:
        return CurrentState::noMemory;
    case FindResult::notReadable:
        return CurrentState::notReadable;
    default:
        break;
    }
    PassLimits pass = limits.pass;
    pass.stop = &stopPass;
    if (!Pass().run(disks, pass)) {
        return stopPass ? CurrentState::stopped : CurrentState::noMemory;
    }
    nameDisks(disks); // with the names and numbers that only the disks themselves had
    return remember(disks, limits.book) ? CurrentState::done : CurrentState::noMemory;
}

// Null if memory is short.
Snapshot *makePass(const CurrentLimits &limits)
{
    Snapshot *const made = newSnapshot();
    if (made != nullptr) {
        made->state = fill(made->disks, limits);
        made->taken = now();
        if (made->state != CurrentState::done) {
            made->disks.clear();
        }
    }
    return made;
}

// With the lock held, which is given back meanwhile.
Snapshot *passWithoutLock(const CurrentLimits &limits)
{
    running = true;
    pthread_mutex_unlock(&lock);
    Snapshot *const made = makePass(limits);
    pthread_mutex_lock(&lock);
    running = false;
    pthread_cond_broadcast(&changed);
    return made;
}

bool isFresh(const Snapshot *snapshot, const CurrentLimits &limits)
{
    return snapshot != nullptr && now() - snapshot->taken < limits.freshMs * kNanoPerMilli;
}

// With the lock held. state and snapshot are what a request gets; it is one of the snapshot's users then.
void take(const CurrentLimits &limits, CurrentState &state, Snapshot *&snapshot)
{
    const uint32_t stopsBefore = stops;
    while (running) {
        pthread_cond_wait(&changed, &lock);
    }
    if (stops != stopsBefore) {
        return;
    }
    snapshot = isFresh(last, limits) ? last : nullptr;
    if (snapshot != nullptr) {
        ++snapshot->users;
    } else if ((snapshot = passWithoutLock(limits)) == nullptr) {
        state = CurrentState::noMemory;
        return;
    }
    state = snapshot->state;
    const bool shared = state == CurrentState::done || state == CurrentState::notReadable;
    if (shared && snapshot != last && stops == stopsBefore) {
        leave(std::exchange(last, snapshot));
        ++snapshot->users;
    }
}

} // namespace

CurrentDisks::CurrentDisks(const CurrentLimits &limits) : state_(CurrentState::stopped), snapshot_(nullptr)
{
    const Held held;
    take(limits, state_, snapshot_);
}

CurrentDisks::~CurrentDisks()
{
    const Held held;
    leave(snapshot_);
}

const Array<Disk> &CurrentDisks::disks() const
{
    return snapshot_ == nullptr ? none_ : snapshot_->disks;
}

void forgetCurrentDisks()
{
    const Held held;
    ++stops;
    stopPass = true;
    const int64_t until = now() + kPatience;
    const timespec time{until / kNanoPerSecond, until % kNanoPerSecond};
    while (running && now() < until) {
        pthread_cond_timedwait(&changed, &lock, &time);
    }
    stopPass = false;
    leave(std::exchange(last, nullptr));
    if (!running) {
        dropBook();
    }
}

} // namespace tavstrg::disks

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

pthread_mutex_t lock = PTHREAD_MUTEX_INITIALIZER; // held for a look and a change only; no other lock is taken with it
pthread_cond_t changed;
pthread_once_t prepared = PTHREAD_ONCE_INIT;

// Guarded by the lock.
Snapshot *last = nullptr; // the store of snapshots is one of its users
bool running = false;     // a thread makes a pass; only that thread uses the book
uint32_t stops = 0;       // calls of forgetCurrentDisks
uint32_t stopping = 0;    // of these, those that wait for the end of a pass

std::atomic<bool> stopPass = false; // true until the pass has ended that is to be stopped

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

// With the lock held. False if the time is over.
bool waitForChange(int64_t until)
{
    const timespec time{until / kNanoPerSecond, until % kNanoPerSecond};
    return pthread_cond_timedwait(&changed, &lock, &time) == 0 || now() < until;
}

// ---- the book ----

void freeBook(Book *freed)
{
    if (freed != nullptr) {
        freed->~Book();
        std::free(freed);
    }
}

void dropBook()
{
    freeBook(std::exchange(book, nullptr));
    bookUsable = false;
}

void reportRead(const char *path, BookRead read, int error)
{
    if (read == BookRead::failed) {
        TRACE(kFailure, "%s is neither read nor written: errno=[%d]", path, error);
    } else if (read == BookRead::movedAside || read == BookRead::movedNewer) {
        TRACE(kFailure, "%s is %s: moved aside, and begun again", path,
              read == BookRead::movedNewer ? "of a later version" : "damaged");
    }
}

// Reads the file. Where that fails, or there is none, what is known meanwhile is kept. False if memory is short.
bool readFile(const char *path)
{
    void *const block = std::malloc(sizeof(Book));
    if (block == nullptr) {
        return false;
    }
    auto *fromFile = new (block) Book;
    int error = 0;
    const BookRead read = readBook(path, *fromFile, error);
    const bool failed = read == BookRead::failed;
    if (failed && error == ENOMEM) {
        freeBook(fromFile);
        return false;
    }
    reportRead(path, read, error);
    if (book == nullptr || read == BookRead::done) {
        std::swap(book, fromFile);
    }
    freeBook(fromFile);
    bookUsable = !failed;
    return true;
}

// news: whether the pass found what is to be saved. False if memory is short.
bool remember(Array<Disk> &disks, const char *path, bool &news)
{
    if (!bookUsable && !readFile(path)) {
        return false;
    }
    Array<Event> events;
    if (!enterPass(*book, disks, static_cast<int64_t>(std::time(nullptr)), events)) {
        dropBook();
        return false;
    }
    news = bookUsable && (book->changed || !events.empty());
    return true;
}

void save(const char *path)
{
    if (const int error = saveBook(path, *book); error != 0) {
        TRACE(kFailure, "%s could not be saved: errno=[%d]", path, error);
    }
}

// ---- a pass ----

CurrentState fill(Array<Disk> &disks, const CurrentLimits &limits, bool &news)
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
    nameAskedDisks(disks);
    return remember(disks, limits.book, news) ? CurrentState::done : CurrentState::noMemory;
}

// Null if memory is short.
Snapshot *makePass(const CurrentLimits &limits, bool &news)
{
    Snapshot *const made = newSnapshot();
    if (made != nullptr) {
        made->state = fill(made->disks, limits, news);
        made->taken = now();
        if (made->state != CurrentState::done) {
            made->disks.clear();
        }
    }
    return made;
}

// With the lock held: keeps what a pass found, unless it was to be forgotten meanwhile.
void publish(Snapshot *made, uint32_t stopsBefore)
{
    const bool shared =
        made != nullptr && (made->state == CurrentState::done || made->state == CurrentState::notReadable);
    if (shared && stops == stopsBefore) {
        leave(std::exchange(last, made));
        ++made->users;
        pthread_cond_broadcast(&changed);
    }
}

// With the lock held, which is given back meanwhile. Others get what was found before it is saved, which may hang.
Snapshot *passWithoutLock(const CurrentLimits &limits)
{
    const uint32_t stopsBefore = stops;
    bool news = false;
    running = true;
    pthread_mutex_unlock(&lock);
    Snapshot *const made = makePass(limits, news);
    pthread_mutex_lock(&lock);
    publish(made, stopsBefore);
    if (news) {
        pthread_mutex_unlock(&lock);
        save(limits.book);
        pthread_mutex_lock(&lock);
    }
    running = false;
    stopPass = stopping != 0;
    pthread_cond_broadcast(&changed);
    return made;
}

// With the lock held. Null if the last pass was too long ago.
Snapshot *freshOne(const CurrentLimits &limits)
{
    return last != nullptr && now() - last->taken < limits.freshMs * kNanoPerMilli ? last : nullptr;
}

// With the lock held. state and snapshot are what a request gets; it is one of the snapshot's users then.
void take(const CurrentLimits &limits, CurrentState &state, Snapshot *&snapshot)
{
    const uint32_t stopsBefore = stops;
    const int64_t until = now() + limits.waitMs * kNanoPerMilli;
    while ((snapshot = freshOne(limits)) == nullptr && running && stops == stopsBefore) {
        if (!waitForChange(until)) {
            state = CurrentState::busy;
            return;
        }
    }
    if (stops != stopsBefore) {
        snapshot = nullptr;
        return;
    }
    if (snapshot != nullptr) {
        ++snapshot->users;
    } else if ((snapshot = passWithoutLock(limits)) == nullptr) {
        state = CurrentState::noMemory;
        return;
    }
    state = snapshot->state;
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

bool forgetCurrentDisks(uint32_t patienceMs)
{
    const Held held;
    ++stops;
    ++stopping;
    stopPass = running;
    pthread_cond_broadcast(&changed); // others wait for nothing any more
    const int64_t until = now() + patienceMs * kNanoPerMilli;
    while (running && waitForChange(until)) {
    }
    --stopping;
    leave(std::exchange(last, nullptr));
    if (!running) {
        stopPass = stopping != 0;
        dropBook();
    }
    return !running;
}

} // namespace tavstrg::disks

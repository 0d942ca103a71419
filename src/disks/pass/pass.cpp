// SPDX-License-Identifier: Apache-2.0
#include "disks/pass/pass.h"

#include "disks/ask/ask.h"
#include "disks/find/attribute.h"

#include "runtime/field_text.h"
#include "runtime/holders.h"
#include "runtime/progress.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <ctime>

namespace tavstrg::disks {

// A thread and the disk that it asks: a copy, for the thread may outlive the pass.
struct Worker {
    Worker *next;
    Pass *pass;
    Round *round; // null once it is set aside
    pthread_t thread;
    int32_t group; // that it has claimed; -1: none
    int32_t at;    // position in the round's order
    int64_t deadline;
    bool asking;
    bool ended;
    Disk disk;
};

// Disks that are asked one after the other.
struct Group {
    int32_t next; // positions in the round's order
    int32_t end;
    bool claimed;
};

struct Round {
    Array<Disk> &disks;
    const PassLimits &limits;
    const char *sysfs;
    Array<int32_t> order; // positions of the disks, sorted by what serves them
    Array<Group> groups;
    int32_t firstFree = 0; // group
    int32_t open = 0;      // disks without an answer
    int32_t workers = 0;   // that have not ended and are not set aside
};

namespace {

constexpr int64_t kNanoPerMilli = 1000000;
constexpr int64_t kNanoPerSecond = 1000000000;
constexpr size_t kStackBytes = size_t{512} << 10;
constexpr size_t kSysfsRoom = 256; // bytes of the path of sysfs

class Locked {
public:
    explicit Locked(pthread_mutex_t &mutex) : mutex_(mutex) { pthread_mutex_lock(&mutex_); }
    ~Locked() { pthread_mutex_unlock(&mutex_); }
    Locked(const Locked &) = delete;
    Locked &operator=(const Locked &) = delete;

private:
    pthread_mutex_t &mutex_;
};

int64_t monotonicNow()
{
    return ProgressClock::now().time_since_epoch().count();
}

bool isServedTogether(const Disk &a, const Disk &b)
{
    return a.queue[0] != '\0' && std::strcmp(a.queue, b.queue) == 0;
}

// The readings of an NVMe controller are those of all its namespaces.
bool answersFor(const Disk &asked, const Disk &other)
{
    return other.protocol == Protocol::nvme && asked.protocol == Protocol::nvme && isServedTogether(asked, other);
}

void takeAnswer(Disk &to, const Disk &from)
{
    const Maybe<int64_t> since = to.health.since;
    to.readings = from.readings;
    to.health = from.health;
    to.health.since = since;
    to.lastAsked = from.lastAsked;
}

bool isSuspended(const char *sysfs, const Disk &disk)
{
    char path[PATH_MAX];
    char buffer[32];
    std::snprintf(path, sizeof path, "%s/block/%s/device/power", sysfs, disk.name);
    return disk.protocol != Protocol::none &&
           AttributeDirectory(path).read("runtime_status", buffer).starts_with("suspended");
}

void askOne(Disk &disk, const char *sysfs)
{
    if (isSuspended(sysfs, disk)) {
        disk.readings.power = PowerState::suspended;
        setHealth(disk.health, HealthState::asleep, "power/runtime_status",
                  "suspended by the kernel; it was not asked");
        return;
    }
    askDisk(disk);
    const HealthState state = disk.health.state;
    const bool answered = state != HealthState::asleep && state != HealthState::unreadable;
    const bool asked = answered && disk.health.source[0] != '\0'; // else nothing was sent
    if (asked) {
        disk.lastAsked.set(static_cast<int64_t>(std::time(nullptr)));
    }
}

bool sortByQueue(const Array<Disk> &disks, Array<int32_t> &order)
{
    for (int32_t i = 0; i < disks.count(); ++i) {
        int32_t *const at = order.append();
        if (at == nullptr) {
            return false;
        }
        *at = i;
    }
    std::sort(order.begin(), order.end(), [&disks](int32_t a, int32_t b) {
        const int by = std::strcmp(disks[a].queue, disks[b].queue);
        return by != 0 ? by < 0 : a < b;
    });
    return true;
}

bool makeGroups(Round &round)
{
    for (int32_t i = 0; i < round.order.count(); ++i) {
        const bool joins = i > 0 && isServedTogether(round.disks[round.order[i - 1]], round.disks[round.order[i]]);
        if (joins) {
            round.groups[round.groups.count() - 1].end = i + 1;
            continue;
        }
        Group *const group = round.groups.append();
        if (group == nullptr) {
            return false;
        }
        *group = {i, i + 1, false};
    }
    round.open = round.order.count();
    return true;
}

// The first group that no thread has and that has disks left; -1: none.
int32_t freeGroup(Round &round)
{
    for (int32_t &i = round.firstFree; i < round.groups.count(); ++i) {
        if (!round.groups[i].claimed && round.groups[i].next < round.groups[i].end) {
            return i;
        }
    }
    return -1;
}

void markOverdue(Disk &disk, const PassLimits &limits)
{
    char reason[sizeof Health::reason];
    std::snprintf(reason, sizeof reason, "has not answered within %u ms; it is left alone until its command returns",
                  limits.deadlineMs);
    setHealth(disk.health, HealthState::unreadable, "deadline", reason);
}

} // namespace

Pass::Pass()
{
    pthread_condattr_t attributes;
    pthread_condattr_init(&attributes);
    pthread_condattr_setclock(&attributes, CLOCK_MONOTONIC);
    pthread_mutex_init(&mutex_, nullptr);
    pthread_cond_init(&changed_, &attributes);
    pthread_condattr_destroy(&attributes);
}

Pass::~Pass()
{
    while (Worker *const worker = workers_) {
        workers_ = worker->next;
        pthread_join(worker->thread, nullptr);
        std::free(worker);
    }
    pthread_cond_destroy(&changed_);
    pthread_mutex_destroy(&mutex_);
}

// Gives the worker the next disk of its group, or of a free one. False when there is none left.
bool Pass::claim(Worker &worker)
{
    Round &round = *worker.round;
    if (worker.group < 0 || round.groups[worker.group].next == round.groups[worker.group].end) {
        worker.group = freeGroup(round);
        if (worker.group < 0) {
            return false;
        }
        round.groups[worker.group].claimed = true;
        worker.disk = Disk{};
    }
    worker.at = round.groups[worker.group].next++;
    Disk &disk = round.disks[round.order[worker.at]];
    if (answersFor(worker.disk, disk)) {
        takeAnswer(disk, worker.disk);
        --round.open;
        return claim(worker);
    }
    worker.disk = disk;
    worker.deadline = monotonicNow() + round.limits.deadlineMs * kNanoPerMilli;
    worker.asking = true;
    return true;
}

void Pass::work(Worker &worker)
{
    char sysfs[kSysfsRoom];
    const Locked locked(mutex_);
    if (worker.round != nullptr) {
        copyText(sysfs, worker.round->sysfs);
    }
    while (worker.round != nullptr && claim(worker)) {
        pthread_cond_signal(&changed_); // there is a deadline to keep
        pthread_mutex_unlock(&mutex_);
        askOne(worker.disk, sysfs);
        pthread_mutex_lock(&mutex_);
        worker.asking = false;
        if (worker.round != nullptr) {
            worker.round->disks[worker.round->order[worker.at]] = worker.disk;
            --worker.round->open;
        }
    }
    if (worker.round != nullptr) {
        --worker.round->workers;
    }
    worker.ended = true;
    pthread_cond_signal(&changed_);
}

void *Pass::threadMain(void *argument)
{
    auto *const worker = static_cast<Worker *>(argument);
    worker->pass->work(*worker);
    return nullptr;
}

// With the mutex held. The signals of the process are not for its threads.
bool Pass::startWorker(Round &round)
{
    auto *const worker = static_cast<Worker *>(std::calloc(1, sizeof(Worker)));
    if (worker == nullptr) {
        return false;
    }
    worker->pass = this;
    worker->round = &round;
    worker->group = -1;
    sigset_t all;
    sigset_t before;
    sigfillset(&all);
    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    pthread_attr_setstacksize(&attributes, kStackBytes);
    pthread_sigmask(SIG_SETMASK, &all, &before);
    const int error = pthread_create(&worker->thread, &attributes, threadMain, worker);
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
    pthread_attr_destroy(&attributes);
    if (error != 0) {
        std::free(worker);
        return false;
    }
    worker->next = workers_;
    workers_ = worker;
    ++round.workers;
    return true;
}

void Pass::startWorkers(Round &round)
{
    const int32_t wanted = std::min(round.groups.count(), round.limits.mostThreads);
    while (round.workers < wanted && freeGroup(round) >= 0 && startWorker(round)) {
    }
}

void Pass::setOverdueAside(Round &round)
{
    const int64_t now = monotonicNow();
    for (Worker *worker = workers_; worker != nullptr; worker = worker->next) {
        if (worker->round != &round || !worker->asking || worker->deadline > now) {
            continue;
        }
        Group &group = round.groups[worker->group];
        Disk &disk = round.disks[round.order[worker->at]];
        markOverdue(disk, round.limits);
        --round.open;
        // A controller that does not answer for one of its namespaces does not for the others.
        while (group.next < group.end && answersFor(disk, round.disks[round.order[group.next]])) {
            takeAnswer(round.disks[round.order[group.next++]], disk);
            --round.open;
        }
        group.claimed = false;
        round.firstFree = std::min(round.firstFree, worker->group);
        worker->round = nullptr;
        --round.workers;
    }
}

// Until every disk has its answer, and no thread uses the round. New threads take the place of those set aside.
void Pass::await(Round &round)
{
    while (round.open > 0 || round.workers > 0) {
        setOverdueAside(round);
        startWorkers(round);
        if (round.workers == 0) {
            break; // no thread can be started
        }
        int64_t earliest = monotonicNow() + kNanoPerSecond;
        for (const Worker *worker = workers_; worker != nullptr; worker = worker->next) {
            if (worker->round == &round && worker->asking) {
                earliest = std::min(earliest, worker->deadline);
            }
        }
        const timespec until{static_cast<time_t>(earliest / kNanoPerSecond), earliest % kNanoPerSecond};
        pthread_cond_timedwait(&changed_, &mutex_, &until);
    }
}

bool Pass::isAside(const char *name) const
{
    for (const Worker *worker = workers_; worker != nullptr; worker = worker->next) {
        if (!worker->ended && std::strcmp(worker->disk.name, name) == 0) {
            return true;
        }
    }
    return false;
}

// Disks whose last command has not returned count as answered.
void Pass::leaveOut(Round &round)
{
    if (workers_ == nullptr) {
        return;
    }
    int32_t kept = 0;
    for (int32_t i = 0; i < round.order.count(); ++i) {
        Disk &disk = round.disks[round.order[i]];
        if (isAside(disk.name)) {
            setHealth(disk.health, HealthState::unreadable, "deadline", "its last command has not returned");
        } else {
            round.order[kept++] = round.order[i];
        }
    }
    round.order.shrink(kept);
}

void Pass::joinEnded()
{
    for (Worker **at = &workers_; *at != nullptr;) {
        Worker *const worker = *at;
        if (!worker->ended) {
            at = &worker->next;
            continue;
        }
        *at = worker->next;
        // It ends as soon as it has the mutex once more.
        pthread_mutex_unlock(&mutex_);
        pthread_join(worker->thread, nullptr);
        pthread_mutex_lock(&mutex_);
        std::free(worker);
    }
}

bool Pass::run(Array<Disk> &disks, const PassLimits &limits, const char *sysfs)
{
    Round round{disks, limits, sysfs, {}, {}};
    if (!disks.empty() && !sortByQueue(disks, round.order)) {
        return false;
    }
    const Locked locked(mutex_);
    joinEnded();
    leaveOut(round);
    if (!makeGroups(round)) {
        return false;
    }
    startWorkers(round);
    await(round);
    for (const Group &group : round.groups) {
        for (int32_t i = group.next; i < group.end; ++i) {
            setHealth(disks[round.order[i]].health, HealthState::unknown, "", "no thread could be started to ask it");
        }
    }
    joinEnded();
    return true;
}

int32_t Pass::setAside() const
{
    const Locked locked(mutex_);
    int32_t count = 0;
    for (const Worker *worker = workers_; worker != nullptr; worker = worker->next) {
        count += worker->ended ? 0 : 1;
    }
    return count;
}

} // namespace tavstrg::disks

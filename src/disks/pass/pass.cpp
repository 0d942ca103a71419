// SPDX-License-Identifier: Apache-2.0
#include "disks/pass/pass.h"

#include "disks/ask/ask.h"
#include "disks/find/attribute.h"

#include "runtime/field_text.h"
#include "runtime/progress.h"
#include "runtime/side_by_side.h"
#include "runtime/trace.h"

#include <algorithm>
#include <climits>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <new>

namespace tavstrg::disks {
namespace {

constexpr int64_t kNanoPerMilli = 1000000;
constexpr size_t kSysfsRoom = 256; // bytes of the path of sysfs

// One disk: what is asked, then its answer. Its thread may outlive the pass, so it refers to nothing of that.
struct DiskTask {
    char sysfs[kSysfsRoom];
    char name[kNameRoom]; // also to be read while the thread is at work
    Disk disk;
    TraceLines lines;
    bool leftOut; // its command of an earlier pass has not returned
};

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

void askOne(const char *sysfs, Disk &disk)
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
    const bool sent = disk.protocol != Protocol::none && disk.health.source[0] != '\0';
    if (answered && sent) {
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

void work(void *block)
{
    auto &task = *static_cast<DiskTask *>(block);
    const TraceInto into(task.lines);
    const TraceScope scope("askDisk");
    askOne(task.sysfs, task.disk);
}

void release(void *block)
{
    static_cast<DiskTask *>(block)->lines.release();
}

bool isSameName(const void *left, void *subject)
{
    return std::strcmp(static_cast<const DiskTask *>(left)->name, static_cast<const DiskTask *>(subject)->name) == 0;
}

// The disks of a pass in groups that are served together, and the task of each that is asked.
class Round {
public:
    Round(Array<Disk> &disks, const PassLimits &limits) : disks_(disks), limits_(limits) {}
    // False if memory is short.
    bool prepare(const char *sysfs);
    // False if it was stopped.
    bool ask();
    void takeAnswers();

private:
    struct Place {
        int32_t disk;  // position in the list
        int32_t task;  // that answers for it
        int32_t first; // task of its group
        bool asked;    // else another one of its group answers for it
    };

    bool findPlaces();
    void addTask(const Place &place, const char *sysfs);
    DiskTask &task(int32_t i) { return *static_cast<DiskTask *>(batch_.task(i)); }
    void markUnanswered(const DiskTask &task, int32_t i, Disk &disk) const;
    bool isStopped() const { return limits_.stop != nullptr && *limits_.stop; }
    static bool goesOn(void *round);

    Array<Disk> &disks_;
    const PassLimits &limits_;
    Array<Place> places_; // sorted by what serves the disks
    int32_t tasks_ = 0;
    int64_t until_ = 0;  // by the monotonic clock, nanoseconds; 0: no limit
    bool ended_ = false; // at that limit
    SideBySide batch_;
};

int64_t monotonicNow()
{
    return ProgressClock::now().time_since_epoch().count();
}

bool Round::findPlaces()
{
    Array<int32_t> order;
    if (!disks_.empty() && !sortByQueue(disks_, order)) {
        return false;
    }
    for (int32_t i = 0; i < order.count(); ++i) {
        Place *const place = places_.append();
        if (place == nullptr) {
            return false;
        }
        const Place *const last = i == 0 ? nullptr : place - 1;
        const bool together = last != nullptr && isServedTogether(disks_[last->disk], disks_[order[i]]);
        const bool answered = together && answersFor(disks_[last->disk], disks_[order[i]]);
        const int32_t task = answered ? last->task : tasks_++;
        *place = {order[i], task, together ? last->first : task, !answered};
    }
    return true;
}

void Round::addTask(const Place &place, const char *sysfs)
{
    auto &added = *new (batch_.task(place.task)) DiskTask{};
    copyText(added.sysfs, sysfs);
    added.disk = disks_[place.disk];
    copyText(added.name, added.disk.name);
    batch_.joinLane(place.task, place.first);
    if (findSetAside(work, isSameName, &added)) {
        added.leftOut = true;
        batch_.leaveOut(place.task);
    }
}

bool Round::prepare(const char *sysfs)
{
    if (!findPlaces()) {
        return false;
    }
    const TaskKind kind = {sizeof(DiskTask), work, release, static_cast<int32_t>(limits_.deadlineMs),
                           limits_.mostThreads};
    if (!batch_.prepare(tasks_, kind)) {
        return false;
    }
    for (const Place &place : places_) {
        if (place.asked) {
            addTask(place, sysfs);
        }
    }
    return true;
}

bool Round::goesOn(void *round)
{
    const auto &self = *static_cast<const Round *>(round);
    return !self.isStopped() && (self.until_ == 0 || monotonicNow() < self.until_);
}

bool Round::ask()
{
    until_ = limits_.wholeMs == 0 ? 0 : monotonicNow() + limits_.wholeMs * kNanoPerMilli;
    ended_ = !batch_.run(goesOn, this);
    return !isStopped();
}

void Round::markUnanswered(const DiskTask &task, int32_t i, Disk &disk) const
{
    if (task.leftOut) {
        setHealth(disk.health, HealthState::unreadable, "deadline", "its last command has not returned");
    } else if (batch_.isWaiting(i)) {
        setHealth(disk.health, HealthState::unknown, "", "was not asked: other disks of its adapter took all the time");
    } else if (batch_.wasCancelled(i)) {
        setHealth(disk.health, HealthState::unknown, "", "was not asked to the end: the pass had taken all its time");
    } else if (ended_) {
        setHealth(disk.health, HealthState::unreadable, "deadline",
                  "had not answered when the pass ended; it is left alone until its command returns");
    } else {
        char reason[sizeof Health::reason];
        std::snprintf(reason, sizeof reason,
                      "has not answered within %u ms; it is left alone until its command returns", limits_.deadlineMs);
        setHealth(disk.health, HealthState::unreadable, "deadline", reason);
    }
}

void Round::takeAnswers()
{
    int32_t answer = 0; // position of the disk that was asked last
    for (const Place &place : places_) {
        Disk &disk = disks_[place.disk];
        if (!place.asked) {
            takeAnswer(disk, disks_[answer]);
            continue;
        }
        const DiskTask &asked = task(place.task);
        if (batch_.isDone(place.task)) {
            disk = asked.disk;
            asked.lines.write();
        } else {
            markUnanswered(asked, place.task, disk);
        }
        answer = place.disk;
    }
}

} // namespace

bool Pass::run(Array<Disk> &disks, const PassLimits &limits, const char *sysfs)
{
    Round round(disks, limits);
    if (!round.prepare(sysfs) || !round.ask()) {
        return false;
    }
    round.takeAnswers();
    return true;
}

int32_t Pass::setAside() const
{
    int32_t count = 0;
    findSetAside(
        work,
        [](const void *, void *counted) {
            ++*static_cast<int32_t *>(counted);
            return false;
        },
        &count);
    return count;
}

} // namespace tavstrg::disks

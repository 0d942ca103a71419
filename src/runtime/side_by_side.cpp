// SPDX-License-Identifier: Apache-2.0
#include "runtime/side_by_side.h"

#include "runtime/batch.h"
#include "runtime/cancel.h"
#include "runtime/trace.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <dlfcn.h>
#include <iterator>
#include <new>
#include <pthread.h>
#include <utility>

using namespace tavstrg;
using namespace tavstrg::lanes;

// Its memory is not from memalloc, whose trace lines would be those of threads that come and go.
struct tavstrg::Worker {
    Batch *batch;
    Worker *next;
    pthread_t thread;
    int32_t task;            // at which it is, or was last; -1 before the first
    std::atomic<bool> ended; // it touches nothing of the batch and of its own any more but to leave the batch
};

namespace {

constexpr int64_t kMillisecond = 1'000'000;           // nanoseconds
constexpr int64_t kLookInterval = 100 * kMillisecond; // between two looks at the deadlines and at a cancellation
constexpr int64_t kPatience = 1000 * kMillisecond;    // with threads that are told to end
constexpr size_t kStackSize = size_t{512} << 10;      // a disk's commands need some 20 KiB

// ---- threads that were set aside ----

pthread_mutex_t leftLock = PTHREAD_MUTEX_INITIALIZER; // no batch's lock is held or taken with it
Worker *left = nullptr;
void *ownLibrary = nullptr; // a reference of our own while a thread is away: it returns into this code

void holdLibrary()
{
    Dl_info info{};
    if (ownLibrary == nullptr && dladdr(&ownLibrary, &info) != 0 && info.dli_fname != nullptr) {
        ownLibrary = dlopen(info.dli_fname, RTLD_LAZY | RTLD_NOLOAD); // null in a program: that is never unloaded
    }
}

void releaseLibrary()
{
    if (void *const library = std::exchange(ownLibrary, nullptr)) {
        dlclose(library); // the broker, in whose call this is, has a reference too
    }
}

// Keeps the worker's batch as well, until it is joined.
void keep(Worker *worker)
{
    useBatch(*worker->batch);
    const Held held(leftLock);
    worker->next = std::exchange(left, worker);
    holdLibrary();
}

// Takes a worker that has ended off a list.
Worker *takeEnded(Worker *&list)
{
    Worker **place = &list;
    while (*place != nullptr && !(*place)->ended) {
        place = &(*place)->next;
    }
    Worker *const found = *place;
    if (found != nullptr) {
        *place = found->next;
    }
    return found;
}

void joinAndFree(Worker *worker)
{
    pthread_join(worker->thread, nullptr);
    std::free(worker);
}

// ---- a thread of a batch ----

// Ends the task at which a thread is, and so, if it was cancelled, the thread's part in the batch.
class AtWork {
public:
    AtWork(Batch &batch, int32_t i) : batch_(batch), i_(i) {}
    ~AtWork()
    {
        const Held held(batch_.lock);
        Task &task = batch_.tasks[i_];
        if (task.state == TaskState::atWork) { // else it was set aside, and another thread is in the lane
            end(batch_, task, done_ ? TaskState::done : TaskState::cancelled);
        }
    }
    AtWork(const AtWork &) = delete;
    AtWork &operator=(const AtWork &) = delete;
    void done() { done_ = true; }

private:
    Batch &batch_;
    const int32_t i_;
    bool done_ = false;
};

void doTask(Batch &batch, int32_t i)
{
    AtWork now(batch, i);
    batch.kind.work(batch.blockOf(i));
    now.done();
}

// The task that a thread does next, first of all one of the lane in which it is; -1 when it has to end.
int32_t takeTask(Worker &worker)
{
    Batch &batch = *worker.batch;
    const Held held(batch.lock);
    int32_t next = -1;
    if (worker.task >= 0) {
        const Task &last = batch.tasks[worker.task];
        if (last.state != TaskState::done) {
            return -1; // it was set aside, and another thread is in its lane
        }
        next = batch.lanes[last.lane].busy ? -1 : nextOfLane(batch, last.lane);
    }
    next = next < 0 ? nextOfAnyLane(batch) : next;
    if (next >= 0) {
        begin(batch, next);
        worker.task = next;
    }
    return next;
}

// The end of a thread, also of one that is cancelled.
class WorkerEnd {
public:
    explicit WorkerEnd(Worker &worker) : worker_(worker) {}
    ~WorkerEnd()
    {
        Batch *const batch = worker_.batch;
        {
            const Held held(batch->lock);
            worker_.ended = true;
            pthread_cond_broadcast(&batch->changed);
        }
        leaveBatch(batch);
    }
    WorkerEnd(const WorkerEnd &) = delete;
    WorkerEnd &operator=(const WorkerEnd &) = delete;

private:
    Worker &worker_;
};

// Nothing on this path is noexcept except destructors: a cancel unwinds it.
void *workerMain(void *argument)
{
    int previous = PTHREAD_CANCEL_ENABLE;
    pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &previous);
    auto &worker = *static_cast<Worker *>(argument);
    const WorkerEnd end(worker);
    for (int32_t i = takeTask(worker); i >= 0; i = takeTask(worker)) {
        doTask(*worker.batch, i);
    }
    return nullptr;
}

// Starts a thread with all signals blocked: they are for the threads of the process that loaded the provider.
int startThread(pthread_t &thread, Worker &worker)
{
    sigset_t all;
    sigset_t before;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &before);
    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    pthread_attr_setstacksize(&attributes, kStackSize);
    const int error = pthread_create(&thread, &attributes, workerMain, &worker);
    pthread_attr_destroy(&attributes);
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
    return error;
}

// ---- the owner of a batch ----

// Adds a thread: whether there is one more.
bool addWorker(Batch &batch)
{
    void *const block = std::calloc(1, sizeof(Worker));
    if (block == nullptr) {
        return false;
    }
    auto *const worker = new (block) Worker{&batch, batch.workers, {}, -1, false};
    useBatch(batch);
    if (const int error = startThread(worker->thread, *worker); error != 0) {
        TRACE(kFailure, "pthread_create() Failure!! err=[%d]", error);
        std::free(worker);
        const Held held(batch.lock);
        --batch.users; // the owner is left
        return false;
    }
    batch.workers = worker;
    return true;
}

int32_t workersAtWork(const Batch &batch)
{
    int32_t count = 0;
    for (const Worker *worker = batch.workers; worker != nullptr; worker = worker->next) {
        count += worker->ended ? 0 : 1;
    }
    return count;
}

// Adds threads for the lanes in which tasks wait and no thread is: whether there is a thread for what is left to do.
bool addWorkers(Batch &batch)
{
    int64_t free = 0;
    {
        const Held held(batch.lock);
        free = std::count_if(batch.lanes, batch.lanes + batch.count,
                             [](const Lane &lane) { return lane.waiting > 0 && !lane.busy; });
    }
    int32_t workers = workersAtWork(batch);
    const int64_t wanted = std::min<int64_t>(workers + free, batch.kind.mostThreads);
    while (workers < wanted && addWorker(batch)) {
        ++workers;
    }
    return workers > 0 || free == 0;
}

// Moves a thread from the batch to those that are away.
void setAside(Batch &batch, Worker *worker)
{
    Worker **place = &batch.workers;
    while (*place != worker) {
        place = &(*place)->next;
    }
    *place = worker->next;
    pthread_cancel(worker->thread); // when its call returns, it sends no further command that is not needed
    keep(worker);
}

// The thread whose task has exceeded its deadline, taken out of its lane; null if there is none.
Worker *takeOverdue(Batch &batch)
{
    const Held held(batch.lock);
    const int64_t latest = now() - batch.kind.deadlineMs * kMillisecond;
    for (Worker *worker = batch.workers; worker != nullptr; worker = worker->next) {
        if (worker->ended || worker->task < 0) {
            continue;
        }
        Task &task = batch.tasks[worker->task];
        if (task.state == TaskState::atWork && task.begun <= latest) {
            end(batch, task, TaskState::given);
            return worker;
        }
    }
    return nullptr;
}

// Waits until all tasks are finished or it is time for a look: whether any is unfinished.
bool awaitProgress(Batch &batch)
{
    const Held held(batch.lock);
    const int64_t until = now() + kLookInterval;
    while (batch.unfinished > 0 && now() < until) {
        waitForChange(batch, until);
    }
    return batch.unfinished > 0;
}

// What asks a run, between its looks, whether it goes on.
struct GoesOn {
    bool (*ask)(void *subject);
    void *subject;
    bool operator()() const { return ask(subject); }
};

void doInThisThread(Batch &batch, const GoesOn &goesOn)
{
    while (goesOn()) {
        int32_t next = -1;
        {
            const Held held(batch.lock);
            next = nextOfAnyLane(batch);
            if (next < 0) {
                return;
            }
            begin(batch, next);
        }
        doTask(batch, next);
    }
}

void joinEnded(Batch &batch)
{
    while (Worker *const worker = takeEnded(batch.workers)) {
        joinAndFree(worker);
    }
}

// Waits for all threads of the batch to end, as long as patience lasts.
void awaitEnd(Batch &batch)
{
    const Held held(batch.lock);
    const int64_t until = now() + kPatience;
    while (workersAtWork(batch) > 0 && now() < until) {
        waitForChange(batch, until);
    }
}

// Takes the task of a thread that is away out of its lane, so that its state no longer changes when it comes back.
void giveUp(Batch &batch, const Worker &worker)
{
    const Held held(batch.lock);
    if (worker.task >= 0 && batch.tasks[worker.task].state == TaskState::atWork) {
        end(batch, batch.tasks[worker.task], TaskState::given);
    }
}

// Stops what is at work. A thread that does not end in time is set aside.
void stop(Batch &batch)
{
    {
        const Held held(batch.lock);
        batch.stopping = true;
    }
    for (const Worker *worker = batch.workers; worker != nullptr; worker = worker->next) {
        pthread_cancel(worker->thread);
    }
    awaitEnd(batch);
    joinEnded(batch);
    while (batch.workers != nullptr) {
        giveUp(batch, *batch.workers);
        setAside(batch, batch.workers);
    }
}

} // namespace

SideBySide::~SideBySide()
{
    if (batch_ != nullptr) {
        stop(*batch_);
        leaveBatch(batch_);
    }
}

bool SideBySide::prepare(int32_t count, const TaskKind &kind)
{
    joinReturned();
    batch_ = makeBatch(count, kind);
    return batch_ != nullptr;
}

void *SideBySide::task(int32_t i) const
{
    return batch_->blockOf(i);
}

void SideBySide::setLane(int32_t i, int32_t number)
{
    Task *const tasks = batch_->tasks;
    tasks[i].number = number;
    const Task *const first =
        std::find_if(tasks, tasks + i, [number](const Task &task) { return task.number == number; });
    joinLane(i, static_cast<int32_t>(first - tasks));
}

void SideBySide::joinLane(int32_t i, int32_t first)
{
    Task *const tasks = batch_->tasks;
    tasks[i].lane = first == i ? i : tasks[first].lane;
    ++batch_->lanes[tasks[i].lane].waiting;
    ++batch_->unfinished;
}

void SideBySide::leaveOut(int32_t i)
{
    batch_->tasks[i].state = TaskState::given;
    --batch_->lanes[batch_->tasks[i].lane].waiting;
    --batch_->unfinished;
}

void SideBySide::run()
{
    run(
        [](void *) {
            cancellationPoint();
            return true;
        },
        nullptr);
}

bool SideBySide::run(bool (*goesOn)(void *subject), void *subject)
{
    Batch &batch = *batch_;
    const GoesOn stillOn = {goesOn, subject};
    do {
        while (Worker *const overdue = takeOverdue(batch)) {
            setAside(batch, overdue);
        }
        if (!addWorkers(batch)) {
            doInThisThread(batch, stillOn);
        }
        if (!stillOn()) {
            stop(batch);
            return false;
        }
    } while (awaitProgress(batch));
    awaitEnd(batch);
    joinEnded(batch);
    return true;
}

bool SideBySide::isDone(int32_t i) const
{
    const Held held(batch_->lock);
    return batch_->tasks[i].state == TaskState::done;
}

bool SideBySide::isWaiting(int32_t i) const
{
    const Held held(batch_->lock);
    return batch_->tasks[i].state == TaskState::waiting;
}

bool SideBySide::wasCancelled(int32_t i) const
{
    const Held held(batch_->lock);
    return batch_->tasks[i].state == TaskState::cancelled;
}

bool tavstrg::findSetAside(void (*work)(void *), bool (*same)(const void *left, void *subject), void *subject)
{
    const Held held(leftLock);
    for (const Worker *worker = left; worker != nullptr; worker = worker->next) {
        if (!worker->ended && worker->batch->kind.work == work && same(worker->batch->blockOf(worker->task), subject)) {
            return true;
        }
    }
    return false;
}

int32_t tavstrg::joinReturned()
{
    int32_t away = 0;
    Worker *ended = nullptr;
    {
        const Held held(leftLock);
        while (Worker *const worker = takeEnded(left)) {
            worker->next = std::exchange(ended, worker);
        }
        for (const Worker *worker = left; worker != nullptr; worker = worker->next) {
            ++away;
        }
    }
    while (ended != nullptr) {
        Worker *const worker = std::exchange(ended, ended->next);
        Batch *const batch = worker->batch;
        joinAndFree(worker);
        leaveBatch(batch);
    }
    const Held held(leftLock);
    if (left == nullptr) {
        releaseLibrary();
    }
    return away;
}

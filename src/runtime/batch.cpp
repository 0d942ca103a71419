// SPDX-License-Identifier: Apache-2.0
#include "runtime/batch.h"

#include "runtime/progress.h"

#include <algorithm>
#include <cstdlib>
#include <ctime>
#include <new>

// Memory here is not from memalloc, whose trace lines would be those of threads that come and go.

namespace tavstrg::lanes {
namespace {

constexpr int64_t kNanosecond = 1'000'000'000; // of a second

template <class Entry> Entry *zeroed(int32_t count, size_t size = sizeof(Entry))
{
    return static_cast<Entry *>(std::calloc(static_cast<size_t>(std::max(count, 1)), size));
}

void freeBatch(Batch *batch)
{
    for (int32_t i = 0; i < batch->count && batch->blocks != nullptr; ++i) {
        batch->kind.release(batch->blockOf(i));
    }
    pthread_cond_destroy(&batch->changed);
    pthread_mutex_destroy(&batch->lock);
    std::free(batch->tasks);
    std::free(batch->lanes);
    std::free(batch->blocks);
    std::free(batch);
}

} // namespace

int64_t now()
{
    return ProgressClock::now().time_since_epoch().count();
}

Batch *makeBatch(int32_t count, const TaskKind &kind)
{
    void *const block = std::calloc(1, sizeof(Batch));
    if (block == nullptr) {
        return nullptr;
    }
    auto *const batch = new (block) Batch{kind, count};
    pthread_condattr_t monotonic;
    pthread_condattr_init(&monotonic);
    pthread_condattr_setclock(&monotonic, CLOCK_MONOTONIC);
    pthread_cond_init(&batch->changed, &monotonic);
    pthread_condattr_destroy(&monotonic);
    batch->tasks = zeroed<Task>(count);
    batch->lanes = zeroed<Lane>(count);
    batch->blocks = zeroed<char>(count, kind.size);
    if (batch->tasks == nullptr || batch->lanes == nullptr || batch->blocks == nullptr) {
        freeBatch(batch);
        return nullptr;
    }
    return batch;
}

void useBatch(Batch &batch)
{
    const Held held(batch.lock);
    ++batch.users;
}

void leaveBatch(Batch *batch)
{
    bool last = false;
    {
        const Held held(batch->lock);
        last = --batch->users == 0;
    }
    if (last) {
        freeBatch(batch);
    }
}

void waitForChange(Batch &batch, int64_t until)
{
    const timespec time{until / kNanosecond, until % kNanosecond};
    pthread_cond_timedwait(&batch.changed, &batch.lock, &time);
}

int32_t nextOfLane(const Batch &batch, int32_t lane)
{
    const int32_t first = std::max(lane, batch.lanes[lane].next);
    for (int32_t i = first; i < batch.count && batch.lanes[lane].waiting > 0 && !batch.stopping; ++i) {
        if (batch.tasks[i].lane == lane && batch.tasks[i].state == TaskState::waiting) {
            return i;
        }
    }
    return -1;
}

int32_t nextOfAnyLane(Batch &batch)
{
    while (batch.next < batch.count && batch.tasks[batch.next].state != TaskState::waiting) {
        ++batch.next;
    }
    for (int32_t i = batch.next; i < batch.count && !batch.stopping; ++i) {
        if (batch.tasks[i].state == TaskState::waiting && !batch.lanes[batch.tasks[i].lane].busy) {
            return i;
        }
    }
    return -1;
}

void begin(Batch &batch, int32_t i)
{
    Task &task = batch.tasks[i];
    task.state = TaskState::atWork;
    task.begun = now();
    batch.lanes[task.lane].busy = true;
    batch.lanes[task.lane].next = i + 1;
    --batch.lanes[task.lane].waiting;
}

void end(Batch &batch, Task &task, TaskState state)
{
    task.state = state;
    batch.lanes[task.lane].busy = false;
    if (--batch.unfinished == 0) {
        pthread_cond_broadcast(&batch.changed);
    }
}

} // namespace tavstrg::lanes

// SPDX-License-Identifier: Apache-2.0
// The tasks of a batch that is done side by side, and whose turn it is: at any time one task of a lane is at work. The
// threads that do them are in side_by_side.cpp.
#pragma once

#include "runtime/side_by_side.h"

#include <cstdint>
#include <pthread.h>

namespace tavstrg {

struct Worker;

namespace lanes {

enum class TaskState : uint8_t {
    waiting,
    atWork,
    done,
    cancelled, // its thread has given it up
    given      // left out, or set aside with its thread
};

struct Task {
    TaskState state;
    int32_t number; // of the lane, as the owner gives it
    int32_t lane;   // position of the lane's first task
    int64_t begun;  // by now()
};

struct Lane {
    bool busy; // a thread is at work in it
    int32_t waiting;
    int32_t next; // none of its tasks before this position waits
};

class Held {
public:
    explicit Held(pthread_mutex_t &mutex) : mutex_(mutex) { pthread_mutex_lock(&mutex_); }
    ~Held() { pthread_mutex_unlock(&mutex_); }
    Held(const Held &) = delete;
    Held &operator=(const Held &) = delete;

private:
    pthread_mutex_t &mutex_;
};

// By the monotonic clock, nanoseconds.
int64_t now();

} // namespace lanes

// What the owner of a batch and its threads share. Freed by the one who leaves it last.
struct Batch {
    TaskKind kind;
    int32_t count;
    int32_t users = 1;      // the owner, its threads, and each thread that is away once more
    int32_t unfinished = 0; // tasks that wait or are at work
    int32_t next = 0;       // no task before this position waits
    bool stopping = false;
    pthread_mutex_t lock = PTHREAD_MUTEX_INITIALIZER; // held for a look and a change only
    pthread_cond_t changed = {};
    Worker *workers = nullptr; // the threads that were not set aside; the owner's, without the lock
    lanes::Task *tasks = nullptr;
    lanes::Lane *lanes = nullptr; // by the position of their first task
    char *blocks = nullptr;

    void *blockOf(int32_t i) const { return blocks + static_cast<size_t>(i) * kind.size; }
};

namespace lanes {

// A batch with one user, its owner; null if memory is short.
Batch *makeBatch(int32_t count, const TaskKind &kind);
void useBatch(Batch &batch);
// Frees the batch after its last user.
void leaveBatch(Batch *batch);

// These are called with the batch's lock held.

// Waits for a change, until a time by now() at most.
void waitForChange(Batch &batch, int64_t until);
// The first task that waits in a lane; -1 if there is none.
int32_t nextOfLane(const Batch &batch, int32_t lane);
// The first task that waits in a lane in which no thread is; -1 if there is none.
int32_t nextOfAnyLane(Batch &batch);
void begin(Batch &batch, int32_t i);
// Takes a task out of its lane, which another thread may enter now.
void end(Batch &batch, Task &task, TaskState state);

} // namespace lanes
} // namespace tavstrg

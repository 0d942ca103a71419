// SPDX-License-Identifier: Apache-2.0
// Tasks that may hang, side by side: lanes in parallel, the tasks of one lane one after the other, each with a
// deadline.
//
// A thread in an uninterruptible call cannot be ended. A task that exceeds its deadline is therefore set aside: the
// thread stays with it, the lane goes on in another thread, and the thread is joined when its call has returned. What
// such a thread uses outlives the batch, and the provider's library stays loaded for it.
#pragma once

#include <cstddef>
#include <cstdint>

namespace tavstrg {

// What the tasks of a batch have in common.
struct TaskKind {
    size_t size;                 // of a task's block, bytes
    void (*work)(void *task);    // does the task. It must not hold a lock between two cancellation points
    void (*release)(void *task); // frees what a block refers to, once no thread uses it any more
    int32_t deadlineMs;          // from the start of the task, milliseconds
    int32_t mostThreads;         // at work at the same time, those that were set aside not counted
};

// A batch of tasks. Its owner is one thread; only it calls these functions.
class SideBySide {
public:
    SideBySide() = default;
    // Leaves the tasks that have not begun, cancels those at work, and waits for these two seconds at most; one that
    // has not ended by then is set aside. After a run nothing is left to do.
    ~SideBySide();
    SideBySide(const SideBySide &) = delete;
    SideBySide &operator=(const SideBySide &) = delete;

    // Makes zero-filled blocks of a number of tasks. False if memory is short. Called once.
    bool prepare(int32_t count, const TaskKind &kind);
    void *task(int32_t i) const;
    // Puts a task, each once, into the lane of a number. In each lane the tasks are done in their order.
    void setLane(int32_t i, int32_t number);
    // Puts a task, each once, into the lane of an earlier task, or with first == i into one of its own. For owners that
    // know the lanes: the cost does not depend on the number of tasks.
    void joinLane(int32_t i, int32_t first);
    // Takes a task that has a lane out: it is not done.
    void leaveOut(int32_t i);
    // Does the tasks and returns when each is done or set aside; a cancellation point until then. Where no thread can
    // be made, they are done in the calling thread, without a deadline.
    void run();
    // The same, but a cancellation point and a note of progress only if goesOn is one: it is called with subject about
    // ten times a second, between two tasks where the calling thread does them, and false ends the run: what has not
    // begun is left, what is at work is cancelled and set aside if it has not ended after a second. Returns whether the
    // run came to its end.
    bool run(bool (*goesOn)(void *subject), void *subject);
    // Whether a task has been done. If not, its block still belongs to the thread that is at work on it.
    bool isDone(int32_t i) const;
    // Whether a task still waits: the run ended before its turn.
    bool isWaiting(int32_t i) const;
    // Whether the run ended while a task was at work, and its thread gave the task up at once: it does not hang. After
    // the end of a run, for a task that was begun: false for one that is done, or was set aside with its thread.
    bool wasCancelled(int32_t i) const;

private:
    struct Batch *batch_ = nullptr;
};

// Calls same(left, subject) for each task of a kind of work that was set aside and has not returned, until one call
// returns true: whether one did. A task's thread may be changing what is in its block.
bool findSetAside(void (*work)(void *), bool (*same)(const void *left, void *subject), void *subject);

// Joins the threads whose calls have returned since they were set aside. Returns how many are still away.
int32_t joinReturned();

} // namespace tavstrg

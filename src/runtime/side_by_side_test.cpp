// SPDX-License-Identifier: Apache-2.0
#include "runtime/side_by_side.h"

#include "runtime/cancel.h"
#include "support/trace_recorder.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <csignal>
#include <mutex>
#include <pthread.h>
#include <thread>
#include <vector>

using namespace tavstrg;
using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

namespace {

std::atomic<int> threadsRefused = 0; // creations of threads that fail next; below 0: all

// A gate at which tasks hang until it opens.
class Gate {
public:
    void pass()
    {
        std::unique_lock held(lock_);
        ++waiting_;
        changed_.notify_all();
        changed_.wait(held, [this] { return open_; });
        --waiting_;
    }
    void open()
    {
        const std::lock_guard held(lock_);
        open_ = true;
        changed_.notify_all();
    }
    void close()
    {
        const std::lock_guard held(lock_);
        open_ = false;
    }
    void awaitWaiting(int number)
    {
        std::unique_lock held(lock_);
        changed_.wait(held, [&] { return waiting_ >= number; });
    }

private:
    std::mutex lock_;
    std::condition_variable changed_;
    bool open_ = false;
    int waiting_ = 0;
};

struct Job {
    int name;
    int millis;   // that it takes
    bool hangs;   // at the gate
    bool steps;   // it can be cancelled between 1000 steps of a millisecond
    pthread_t by; // thread that did it
};

Gate gate;
std::atomic<int> atOnce;
std::atomic<int> mostAtOnce;
std::atomic<int> cut;      // jobs that were cancelled
std::atomic<int> released; // blocks
std::mutex orderLock;
std::vector<int> order;

struct Count {
    Count()
    {
        const int present = ++atOnce;
        for (int most = mostAtOnce; present > most && !mostAtOnce.compare_exchange_weak(most, present);) {
        }
    }
    ~Count() { --atOnce; }
    Count(const Count &) = delete;
    Count &operator=(const Count &) = delete;
};

struct Cut {
    bool whole = false;
    Cut() = default;
    ~Cut() { cut += whole ? 0 : 1; }
    Cut(const Cut &) = delete;
    Cut &operator=(const Cut &) = delete;
};

void work(void *task)
{
    auto &job = *static_cast<Job *>(task);
    const Count count;
    Cut cutOff;
    job.by = pthread_self();
    {
        const std::lock_guard held(orderLock);
        order.push_back(job.name);
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(job.millis));
    for (int i = 0; i < 1000 && job.steps; ++i) {
        std::this_thread::sleep_for(1ms);
        cancellationPoint();
    }
    if (job.hangs) {
        gate.pass();
        cancellationPoint();
    }
    cutOff.whole = true;
}

void release(void *)
{
    ++released;
}

constexpr TaskKind kKind = {sizeof(Job), work, release, 60000, 64};

bool hasName(const void *leftTask, void *name)
{
    return static_cast<const Job *>(leftTask)->name == *static_cast<int *>(name);
}

bool isAway(int name)
{
    return findSetAside(work, hasName, &name);
}

// Waits for threads that were set aside and whose calls have returned.
void awaitReturned()
{
    while (joinReturned() > 0) {
        std::this_thread::sleep_for(1ms);
    }
}

class TasksSideBySide : public testing::Test {
protected:
    TasksSideBySide()
    {
        gate.close();
        mostAtOnce = cut = released = 0;
        order.clear();
        threadsRefused = 0;
    }
    ~TasksSideBySide() override
    {
        gate.open();
        awaitReturned();
        threadsRefused = 0;
    }

    // A batch of jobs, named by their positions, one to each number of a lane.
    static void prepare(SideBySide &batch, const std::vector<int> &lanes, TaskKind kind = kKind)
    {
        ASSERT_TRUE(batch.prepare(static_cast<int32_t>(lanes.size()), kind));
        for (int32_t i = 0; i < static_cast<int32_t>(lanes.size()); ++i) {
            batch.setLane(i, lanes[static_cast<size_t>(i)]);
            job(batch, i).name = i;
        }
    }
    static Job &job(SideBySide &batch, int32_t i) { return *static_cast<Job *>(batch.task(i)); }
    static TaskKind withDeadline(int32_t millis)
    {
        TaskKind kind = kKind;
        kind.deadlineMs = millis;
        return kind;
    }
};

TEST_F(TasksSideBySide, OfDifferentLanesAreDoneAtTheSameTime)
{
    SideBySide batch;
    prepare(batch, {7, 8, 9, 1000});
    for (int i = 0; i < 4; ++i) {
        job(batch, i).hangs = true;
    }
    std::thread opener([] {
        gate.awaitWaiting(4);
        gate.open();
    });
    batch.run();
    opener.join();
    EXPECT_EQ(mostAtOnce, 4);
    for (int i = 0; i < 4; ++i) {
        EXPECT_TRUE(batch.isDone(i));
        EXPECT_FALSE(pthread_equal(job(batch, i).by, pthread_self()));
    }
}

TEST_F(TasksSideBySide, OfOneLaneAreDoneOneAfterTheOtherInTheirOrder)
{
    SideBySide batch;
    prepare(batch, {3, 3, 3, 3, 3});
    for (int i = 0; i < 5; ++i) {
        job(batch, i).millis = 5 - i;
    }
    batch.run();
    EXPECT_EQ(mostAtOnce, 1);
    EXPECT_EQ(order, (std::vector{0, 1, 2, 3, 4}));
}

TEST_F(TasksSideBySide, AreDoneByNoMoreThreadsThanAllowed)
{
    TaskKind kind = kKind;
    kind.mostThreads = 3;
    SideBySide batch;
    prepare(batch, {1, 2, 3, 4, 5, 6, 7, 8}, kind);
    for (int i = 0; i < 8; ++i) {
        job(batch, i).millis = 5;
    }
    batch.run();
    EXPECT_LE(mostAtOnce, 3);
    EXPECT_EQ(order.size(), 8U);
}

TEST_F(TasksSideBySide, ThatAreLeftOutAreNotDone)
{
    SideBySide batch;
    prepare(batch, {1, 1, 2});
    batch.leaveOut(1);
    batch.leaveOut(2);
    batch.run();
    EXPECT_EQ(order, std::vector{0});
    EXPECT_TRUE(batch.isDone(0));
    EXPECT_FALSE(batch.isDone(1));
    EXPECT_FALSE(batch.isDone(2));
}

TEST_F(TasksSideBySide, OfLanesThatTheOwnerJoinsAreDoneOneAfterTheOther)
{
    SideBySide batch;
    ASSERT_TRUE(batch.prepare(6, kKind));
    for (int32_t i = 0; i < 6; ++i) {
        batch.joinLane(i, i % 2);
        job(batch, i).name = i;
        job(batch, i).millis = 2;
    }
    batch.run();
    EXPECT_LE(mostAtOnce, 2);
    std::erase_if(order, [](int name) { return name % 2 != 0; });
    EXPECT_EQ(order, (std::vector{0, 2, 4}));
}

TEST_F(TasksSideBySide, EndEarlyWhenTheirOwnerSaysSo)
{
    SideBySide batch;
    prepare(batch, {1, 1, 2});
    job(batch, 0).hangs = true;
    const auto untilHanging = [](void *) {
        const std::lock_guard held(orderLock);
        return !(atOnce == 1 && order.size() == 2);
    };
    EXPECT_FALSE(batch.run(untilHanging, nullptr));
    EXPECT_FALSE(batch.isDone(0));
    EXPECT_FALSE(batch.isWaiting(0));
    EXPECT_TRUE(batch.isWaiting(1));
    EXPECT_TRUE(batch.isDone(2));
    EXPECT_TRUE(isAway(0));
    gate.open();
    awaitReturned();
    EXPECT_EQ(order.size(), 2U);
    EXPECT_TRUE(batch.isWaiting(1));
}

TEST_F(TasksSideBySide, ThatAreCancelledAreToldFromThoseThatHang)
{
    SideBySide batch;
    prepare(batch, {1, 2});
    job(batch, 0).hangs = true;
    job(batch, 1).steps = true;
    EXPECT_FALSE(batch.run([](void *) { return atOnce < 2; }, nullptr));
    EXPECT_FALSE(batch.wasCancelled(0));
    EXPECT_TRUE(batch.wasCancelled(1));
    gate.open();
    awaitReturned();
    EXPECT_FALSE(batch.wasCancelled(0)) << "it hung when the run ended";
}

TEST_F(TasksSideBySide, OfAnEmptyBatchAreDoneAtOnce)
{
    SideBySide batch;
    prepare(batch, {});
    batch.run();
    EXPECT_TRUE(order.empty());
}

TEST_F(TasksSideBySide, OneThatHangsDelaysTheOthersOfItsLaneByItsDeadlineOnly)
{
    SideBySide batch;
    prepare(batch, {1, 1, 1, 2}, withDeadline(500));
    job(batch, 0).hangs = true;
    const Clock::time_point begun = Clock::now();
    batch.run();
    EXPECT_GE(Clock::now() - begun, 500ms);
    EXPECT_FALSE(batch.isDone(0));
    EXPECT_TRUE(batch.isDone(1));
    EXPECT_TRUE(batch.isDone(2));
    EXPECT_TRUE(batch.isDone(3));
    EXPECT_TRUE(isAway(0));
    EXPECT_FALSE(isAway(1));
    EXPECT_EQ(joinReturned(), 1);
}

TEST_F(TasksSideBySide, TwoThatHangInOneLaneDelayTheOthersByTwoDeadlines)
{
    SideBySide batch;
    prepare(batch, {1, 1, 1}, withDeadline(400));
    job(batch, 0).hangs = job(batch, 1).hangs = true;
    batch.run();
    EXPECT_TRUE(batch.isDone(2));
    EXPECT_TRUE(isAway(0));
    EXPECT_TRUE(isAway(1));
}

TEST_F(TasksSideBySide, OneThatComesBackIsJoinedAndItsBatchFreed)
{
    {
        SideBySide batch;
        prepare(batch, {1, 2}, withDeadline(300));
        job(batch, 0).hangs = true;
        batch.run();
    }
    EXPECT_EQ(released, 0); // the thread still uses its block
    EXPECT_TRUE(isAway(0));
    gate.open();
    awaitReturned();
    EXPECT_FALSE(isAway(0));
    EXPECT_EQ(released, 2);
    EXPECT_EQ(cut, 1); // it was cancelled behind the call that hung
}

TEST_F(TasksSideBySide, OneThatWasSetAsideDoesNotTouchItsLaneWhenItComesBack)
{
    SideBySide batch;
    prepare(batch, {1, 1}, withDeadline(500));
    job(batch, 0).hangs = true;
    job(batch, 1).millis = 50;
    std::thread opener([] {
        while (!isAway(0)) {
            std::this_thread::sleep_for(1ms);
        }
        gate.open();
    });
    batch.run();
    opener.join();
    EXPECT_FALSE(batch.isDone(0));
    EXPECT_TRUE(batch.isDone(1));
}

TEST_F(TasksSideBySide, WithoutThreadsAreDoneInTheCallingThread)
{
    threadsRefused = -1;
    TraceRecorder trace;
    SideBySide batch;
    prepare(batch, {1, 2, 1});
    batch.run();
    EXPECT_EQ(order, (std::vector{0, 1, 2}));
    for (int i = 0; i < 3; ++i) {
        EXPECT_TRUE(batch.isDone(i));
        EXPECT_TRUE(pthread_equal(job(batch, i).by, pthread_self()));
    }
    EXPECT_TRUE(trace.has(3, "pthread_create() Failure!! err=[11]"));
}

TEST_F(TasksSideBySide, WithoutThreadsEndEarlyToo)
{
    threadsRefused = -1;
    SideBySide batch;
    prepare(batch, {1, 2, 1});
    EXPECT_FALSE(batch.run([](void *) { return order.size() < 2; }, nullptr));
    EXPECT_TRUE(batch.isDone(1));
    EXPECT_TRUE(batch.isWaiting(2));
}

TEST_F(TasksSideBySide, WithFewerThreadsThanWantedAreAllDone)
{
    for (int refused = 1; refused <= 4; ++refused) {
        threadsRefused = refused;
        SideBySide batch;
        prepare(batch, {1, 2, 3, 1, 2, 3});
        batch.run();
        for (int i = 0; i < 6; ++i) {
            EXPECT_TRUE(batch.isDone(i)) << refused;
        }
    }
}

TEST_F(TasksSideBySide, ThatCannotGoOnInAnotherThreadAreDoneInTheCallingOne)
{
    SideBySide batch;
    prepare(batch, {1, 1}, withDeadline(400));
    job(batch, 0).hangs = true;
    std::thread refuser([] {
        gate.awaitWaiting(1);
        threadsRefused = -1;
    });
    batch.run();
    refuser.join();
    EXPECT_TRUE(batch.isDone(1));
    EXPECT_TRUE(pthread_equal(job(batch, 1).by, pthread_self()));
}

TEST_F(TasksSideBySide, RunInThreadsThatTakeNoSignals)
{
    struct Masked {
        sigset_t mask;
    };
    const TaskKind kind = {
        sizeof(Masked), [](void *task) { pthread_sigmask(SIG_SETMASK, nullptr, &static_cast<Masked *>(task)->mask); },
        release, 60000, 1};
    SideBySide batch;
    ASSERT_TRUE(batch.prepare(1, kind));
    batch.setLane(0, 0);
    batch.run();
    EXPECT_EQ(sigismember(&static_cast<Masked *>(batch.task(0))->mask, SIGTERM), 1);
    sigset_t own;
    pthread_sigmask(SIG_SETMASK, nullptr, &own);
    EXPECT_EQ(sigismember(&own, SIGTERM), 0);
}

// A thread that runs a batch and is cancelled meanwhile.
class CancelledRun {
public:
    explicit CancelledRun(SideBySide *&batch) : batch_(batch) { pthread_create(&thread_, nullptr, main, this); }
    // How long it takes to end.
    Clock::duration cancel()
    {
        const Clock::time_point begun = Clock::now();
        pthread_cancel(thread_);
        pthread_join(thread_, &result_);
        return Clock::now() - begun;
    }
    bool wasCancelled() const { return result_ == PTHREAD_CANCELED; }

private:
    struct Owner {
        SideBySide *&batch;
        ~Owner() { delete std::exchange(batch, nullptr); }
    };
    static void *main(void *self)
    {
        pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, nullptr);
        const Owner owner{static_cast<CancelledRun *>(self)->batch_};
        owner.batch->run();
        return nullptr;
    }

    SideBySide *&batch_;
    pthread_t thread_ = {};
    void *result_ = nullptr;
};

TEST_F(TasksSideBySide, AreCancelledWithTheirOwner)
{
    auto *batch = new SideBySide;
    prepare(*batch, {1, 2, 2});
    job(*batch, 0).steps = job(*batch, 1).steps = true;
    CancelledRun run(batch);
    while (atOnce < 2) {
        std::this_thread::sleep_for(1ms);
    }
    run.cancel();
    EXPECT_TRUE(run.wasCancelled());
    EXPECT_EQ(cut, 2);
    EXPECT_EQ(order.size(), 2U); // the third has not begun
    EXPECT_EQ(atOnce, 0);
    EXPECT_EQ(released, 3);
    EXPECT_EQ(joinReturned(), 0);
}

TEST_F(TasksSideBySide, ThatHangAreLeftBehindWhenTheirOwnerIsCancelled)
{
    auto *batch = new SideBySide;
    prepare(*batch, {1, 2});
    job(*batch, 0).hangs = true;
    job(*batch, 1).steps = true;
    CancelledRun run(batch);
    gate.awaitWaiting(1);
    EXPECT_LT(run.cancel(), 2s);
    EXPECT_TRUE(run.wasCancelled());
    EXPECT_TRUE(isAway(0));
    EXPECT_FALSE(isAway(1));
    EXPECT_EQ(released, 0);
    gate.open();
    awaitReturned();
    EXPECT_EQ(released, 2);
}

TEST_F(TasksSideBySide, ManyAreAllDone)
{
    std::vector<int> lanes(500);
    for (size_t i = 0; i < lanes.size(); ++i) {
        lanes[i] = static_cast<int>(i * 7 % 90);
    }
    SideBySide batch;
    prepare(batch, lanes);
    batch.run();
    for (int i = 0; i < 500; ++i) {
        EXPECT_TRUE(batch.isDone(i)) << i;
    }
    EXPECT_EQ(order.size(), 500U);
}

} // namespace

// pthread_create of the product, which the linker leads here (src/CMakeLists.txt).
extern "C" {
int __real_pthread_create(pthread_t *thread, const pthread_attr_t *attributes, void *(*start)(void *), void *argument);
int __wrap_pthread_create(pthread_t *thread, const pthread_attr_t *attributes, void *(*start)(void *), void *argument);
int __wrap_pthread_create(pthread_t *thread, const pthread_attr_t *attributes, void *(*start)(void *), void *argument)
{
    if (threadsRefused != 0) {
        threadsRefused -= threadsRefused > 0 ? 1 : 0; // by one thread at a time
        return EAGAIN;
    }
    return __real_pthread_create(thread, attributes, start, argument);
}
}

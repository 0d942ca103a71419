// SPDX-License-Identifier: Apache-2.0
#include "runtime/turns.h"

#include "runtime/lock.h"
#include "runtime/progress.h"
#include "support/options_fixture.h"
#include "support/trace_recorder.h"

#include <atomic>
#include <cerrno>
#include <chrono>
#include <gtest/gtest.h>
#include <thread>
#include <vector>

using namespace tavstrg;
using namespace std::chrono_literals;

namespace {

using Clock = std::chrono::steady_clock;

// A thing that one thread at a time may have.
class Resource {
public:
    int attempt() { return taken_.exchange(true) ? EBUSY : 0; }
    void giveBack() { taken_ = false; }

private:
    std::atomic<bool> taken_{true};
};

TEST(TurnQueue, TheFirstAttemptMayDo)
{
    TurnQueue queue;
    EXPECT_EQ(queue.wait([] { return 0; }), 0);
    EXPECT_EQ(queue.wait([] { return EINVAL; }), EINVAL);
}

TEST(TurnQueue, ServesInTheOrderOfArrival)
{
    constexpr size_t kThreads = 16;
    TurnQueue queue;
    Resource resource;
    std::mutex guard;
    std::vector<size_t> served;
    std::atomic<size_t> attempts = 0;
    std::vector<std::thread> threads;
    for (size_t i = 0; i < kThreads; ++i) {
        const size_t before = attempts;
        std::atomic<bool> started = false;
        threads.emplace_back([&, i] {
            started = true;
            EXPECT_EQ(queue.wait([&] {
                ++attempts;
                return resource.attempt();
            }),
                      0);
            {
                const std::lock_guard held(guard);
                served.push_back(i);
            }
            resource.giveBack();
            noteProgress();
            queue.changed();
        });
        while (!started || (i == 0 && attempts == before)) {
            std::this_thread::yield();
        }
        std::this_thread::sleep_for(20ms); // nothing shows that a thread has joined behind others
    }
    resource.giveBack();
    queue.changed();
    for (std::thread &thread : threads) {
        thread.join();
    }
    ASSERT_EQ(served.size(), kThreads);
    EXPECT_TRUE(std::is_sorted(served.begin(), served.end()));
}

TEST(TurnQueue, GivesUpThreeSecondsAfterTheLastProgress)
{
    TurnQueue queue;
    const auto start = Clock::now();
    std::thread worker([&] {
        for (int i = 0; i < 20; ++i) {
            std::this_thread::sleep_for(100ms);
            noteProgress();
        }
    });
    EXPECT_EQ(queue.wait([] { return EBUSY; }), ETIMEDOUT);
    const auto waited = Clock::now() - start;
    worker.join();
    EXPECT_GE(waited, 4900ms) << "two seconds of progress, three without";
    EXPECT_LT(waited, 30s);
}

TEST(TurnQueue, OneThatGivesUpLeavesTheLineToTheOthers)
{
    TurnQueue queue;
    Resource resource;
    std::atomic<bool> late = false;
    std::thread impatient([&] { EXPECT_EQ(queue.wait([] { return EBUSY; }), ETIMEDOUT); });
    std::this_thread::sleep_for(1s);
    std::thread patient([&] { EXPECT_EQ(queue.wait([&] { return late ? resource.attempt() : EBUSY; }), 0); });
    impatient.join();
    late = true;
    resource.giveBack();
    queue.changed();
    patient.join();
}

class StoreLock : public testing::Test {
protected:
    StoreLock() { pthread_mutex_lock(&mutex); }
    ~StoreLock() override { pthread_mutex_unlock(&mutex); }

    sim::Machine machine{"{}"};
    TraceRecorder trace;
    pthread_mutex_t mutex = PTHREAD_MUTEX_INITIALIZER;
    const CInfo cInfo = {};
    const int32_t before = g_srvmod.exchange(0);
};

TEST_F(StoreLock, ThatIsStuckIsRefusedAfterThreeSecondsWithTheLineToo)
{
    const OptionsInForce on(machine, "fair-requests\n");
    const auto start = Clock::now();
    EXPECT_EQ(nonsrvMutexLock(&cInfo, &mutex), -1);
    EXPECT_GE(Clock::now() - start, 2900ms);
    EXPECT_TRUE(trace.has(3, "pthread_mutex_trylock() Failure!! the store is stuck", "nonsrvMutexLock"));
    EXPECT_EQ(trace.textsOf("nonsrvMutexLock").back(), "_OUT_");
}

TEST_F(StoreLock, ThatIsGivenBackIsTakenAtOnceWithTheLine)
{
    for (const char *const line : {"fair-requests\n", "all\n"}) {
        const OptionsInForce on(machine, line);
        std::atomic<bool> taken = false;
        std::thread waiting([&] {
            EXPECT_EQ(nonsrvMutexLock(&cInfo, &mutex), 0);
            taken = true;
            mutexUnlock(&mutex);
        });
        std::this_thread::sleep_for(50ms);
        EXPECT_FALSE(taken);
        mutexUnlock(&mutex);
        waiting.join();
        pthread_mutex_lock(&mutex);
    }
}

TEST(TurnRules, AWaitForTheBuildIsCountedFromTheLastProgressWithTheLineOnly)
{
    sim::Machine machine("{}");
    {
        const OptionsInForce on(machine, "fair-requests\n");
        noteProgress();
        EXPECT_LE(turnRules().waitsAfter(28), 5);
        EXPECT_EQ(turnRules().waitsAfter(0), 0);
    }
    noteProgress();
    EXPECT_EQ(turnRules().waitsAfter(28), 29);
}

TEST(TurnRules, NoResultIsSharedWithoutTheLine)
{
    sim::Machine machine("{}");
    EXPECT_EQ(turnRules().lastForeign(7), UINT64_MAX);
    const OptionsInForce on(machine, "fair-requests\n");
    EXPECT_EQ(turnRules().lastForeign(7), 7U);
}

} // namespace

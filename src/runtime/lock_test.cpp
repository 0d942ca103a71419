// SPDX-License-Identifier: Apache-2.0
#include "runtime/lock.h"

#include "runtime/trace.h"
#include "sim/sim.h"
#include "support/trace_recorder.h"

#include <cerrno>
#include <cstdio>
#include <gmock/gmock.h>
#include <thread>

using namespace tavstrg;

using testing::ElementsAre;

namespace {

const CMPIBroker noBroker = {};
const CInfo anyone = {&noBroker, nullptr};

class Locks : public testing::Test {
protected:
    Locks()
    {
        g_srvmod = 0;
        sim::countCallsOf("");
        sim::skipSleeps(true);
    }
    ~Locks() override
    {
        sim::skipSleeps(false);
        g_srvmod = -1;
    }
    TraceRecorder trace;
    pthread_mutex_t mutex = PTHREAD_MUTEX_INITIALIZER;
};

TEST_F(Locks, MissingArgumentsFailInTheirOrder)
{
    EXPECT_EQ(nonsrvMutexLock(nullptr, nullptr), -1);
    EXPECT_EQ(nonsrvMutexLock(&anyone, nullptr), -1);
    EXPECT_THAT(trace.linesOf("nonsrvMutexLock"),
                ElementsAre("0 _IN_", "3 _OUT_ param(cInfo) Failure!!", "0 _IN_", "3 _OUT_ param(mutex) Failure!!"));
    EXPECT_EQ(shmMutexLock(nullptr), -1);
    EXPECT_TRUE(trace.has(kFailure, "_OUT_ param(mutex) Failure!!", "shmMutexLock"));
    EXPECT_EQ(shmMutexUnlock(nullptr), -1);
    EXPECT_TRUE(trace.has(kFailure, "_OUT_ param(mutex) Failure!!", "shmMutexUnlock"));
    mutexUnlock(nullptr);
    EXPECT_TRUE(trace.has(kFailure, "_OUT_ param(mutex) Failure!!", "mutexUnlock"));
}

TEST_F(Locks, AFreeLockIsTakenAtOnce)
{
    ASSERT_EQ(nonsrvMutexLock(&anyone, &mutex), 0);
    EXPECT_THAT(trace.textsOf("nonsrvMutexLock"),
                ElementsAre("_IN_", "pthread_mutex_trylock()", "pthread_mutex_trylock() success", "_OUT_"));
    EXPECT_EQ(pthread_mutex_trylock(&mutex), EBUSY);
    mutexUnlock(&mutex);
    char address[64];
    std::snprintf(address, sizeof address, "pthread_mutex_unlock()[%p]", static_cast<void *>(&mutex));
    EXPECT_THAT(trace.textsOf("mutexUnlock"), ElementsAre("_IN_", address, "pthread_mutex_unlock success", "_OUT_"));
    EXPECT_FALSE(trace.has(kFailure, "pthread_mutex_unlock success"));
    EXPECT_EQ(pthread_mutex_trylock(&mutex), 0);
    pthread_mutex_unlock(&mutex);
}

TEST_F(Locks, InServiceModeNothingIsLocked)
{
    g_srvmod = 1;
    ASSERT_EQ(nonsrvMutexLock(&anyone, &mutex), 0);
    EXPECT_TRUE(trace.has(kDetail, "_OUT_ now is ServiceMode.", "nonsrvMutexLock"));
    EXPECT_EQ(pthread_mutex_trylock(&mutex), 0);
    pthread_mutex_unlock(&mutex);
}

TEST_F(Locks, ABusyLockIsTriedThirtyTimesATenthOfASecondApart)
{
    pthread_mutex_lock(&mutex);
    const double before = sim::sleptSeconds();
    EXPECT_EQ(nonsrvMutexLock(&anyone, &mutex), -1);
    EXPECT_NEAR(sim::sleptSeconds() - before, 3.0, 0.01);
    const std::vector<std::string> texts = trace.textsOf("nonsrvMutexLock");
    ASSERT_EQ(texts.size(), 1u + 30 * 3 + 2);
    EXPECT_EQ(texts[1], "pthread_mutex_trylock()");
    EXPECT_EQ(texts[2], "pthread_mutex_trylock() EBUSY...");
    EXPECT_EQ(texts[3], "pthread_mutex_trylock() retry(1)");
    EXPECT_EQ(texts[90], "pthread_mutex_trylock() retry(30)");
    EXPECT_TRUE(trace.has(kFailure, "pthread_mutex_trylock() retry(30) Failre!!", "nonsrvMutexLock"));

    EXPECT_EQ(shmMutexLock(&mutex), -1);
    EXPECT_NEAR(sim::sleptSeconds() - before, 6.0, 0.01);
    const std::vector<std::string> quiet = trace.textsOf("shmMutexLock");
    ASSERT_EQ(quiet.size(), 1u + 30 * 2 + 2);
    EXPECT_EQ(quiet[1], "pthread_mutex_trylock() EBUSY...");
    EXPECT_EQ(quiet[2], "pthread_mutex_trylock() retry(1)");
    EXPECT_TRUE(trace.has(kFailure, "pthread_mutex_trylock() retry(30) Failre!!", "shmMutexLock"));
    pthread_mutex_unlock(&mutex);
}

TEST_F(Locks, ALockThatComesFreeMeanwhileIsTaken)
{
    sim::skipSleeps(false);
    pthread_mutex_lock(&mutex);
    std::atomic<int> taken{1};
    std::thread other([&] {
        taken = shmMutexLock(&mutex);
        shmMutexUnlock(&mutex);
    });
    while (!trace.has(kDetail, "pthread_mutex_trylock() EBUSY...", "shmMutexLock")) {
        std::this_thread::yield();
    }
    pthread_mutex_unlock(&mutex);
    other.join();
    EXPECT_EQ(taken, 0);
}

TEST_F(Locks, LockErrorsAreTracedWithTheirNumber)
{
    pthread_mutexattr_t attributes;
    pthread_mutexattr_init(&attributes);
    pthread_mutexattr_settype(&attributes, PTHREAD_MUTEX_ERRORCHECK);
    pthread_mutex_t checked;
    ASSERT_EQ(pthread_mutex_init(&checked, &attributes), 0);
    const std::string error = "pthread_mutex_unlock Failure!! errno=[" + std::to_string(EPERM) + "]";
    mutexUnlock(&checked);
    EXPECT_TRUE(trace.has(kFailure, error, "mutexUnlock"));
    EXPECT_EQ(shmMutexUnlock(&checked), -1);
    EXPECT_TRUE(trace.has(kFailure, error, "shmMutexUnlock"));
    pthread_mutex_destroy(&checked);
    pthread_mutexattr_destroy(&attributes);
}

TEST_F(Locks, ARobustLockWhoseOwnerDiedIsAnErrorNotABusyLock)
{
    pthread_mutexattr_t attributes;
    pthread_mutexattr_init(&attributes);
    pthread_mutexattr_setrobust(&attributes, PTHREAD_MUTEX_ROBUST);
    for (const bool store : {true, false}) {
        pthread_mutex_t robust;
        ASSERT_EQ(pthread_mutex_init(&robust, &attributes), 0);
        std::thread([&] { pthread_mutex_lock(&robust); }).join();
        EXPECT_EQ(store ? nonsrvMutexLock(&anyone, &robust) : shmMutexLock(&robust), -1);
        EXPECT_TRUE(trace.has(kFailure, "pthread_mutex_trylock() Failure!! errno=[" + std::to_string(EOWNERDEAD) + "]",
                              store ? "nonsrvMutexLock" : "shmMutexLock"));
        pthread_mutex_consistent(&robust);
        pthread_mutex_unlock(&robust);
        pthread_mutex_destroy(&robust);
    }
    pthread_mutexattr_destroy(&attributes);
}

TEST_F(Locks, SegmentLocksAreTakenAndReleased)
{
    EXPECT_EQ(shmMutexLock(&mutex), 0);
    EXPECT_THAT(trace.textsOf("shmMutexLock"), ElementsAre("_IN_", "_OUT_"));
    EXPECT_EQ(pthread_mutex_trylock(&mutex), EBUSY);
    EXPECT_EQ(shmMutexUnlock(&mutex), 0);
    EXPECT_THAT(trace.textsOf("shmMutexUnlock"), ElementsAre("_IN_", "_OUT_"));
    EXPECT_EQ(pthread_mutex_trylock(&mutex), 0);
    pthread_mutex_unlock(&mutex);
}

TEST(RenewableMutex, IsMadeOnceUntilItIsDestroyed)
{
    RenewableMutex lock = {};
    EXPECT_EQ(destroyMutex(lock), 0) << "nothing is there to destroy";
    EXPECT_EQ(renewMutex(lock), 0);
    EXPECT_TRUE(lock.live);
    ASSERT_EQ(pthread_mutex_lock(&lock.mutex), 0);
    EXPECT_EQ(renewMutex(lock), 0);
    EXPECT_EQ(pthread_mutex_trylock(&lock.mutex), EBUSY) << "one that is held must not be made anew";
    EXPECT_EQ(destroyMutex(lock), EBUSY);
    EXPECT_TRUE(lock.live);
    pthread_mutex_unlock(&lock.mutex);
    EXPECT_EQ(destroyMutex(lock), 0);
    EXPECT_FALSE(lock.live);
    EXPECT_EQ(renewMutex(lock), 0);
    EXPECT_EQ(pthread_mutex_trylock(&lock.mutex), 0);
    pthread_mutex_unlock(&lock.mutex);
    EXPECT_EQ(destroyMutex(lock), 0);
}

TEST(RenewableMutex, IsUsableAlsoAfterItWasUnlockedOnceTooOften)
{
    RenewableMutex lock = {};
    ASSERT_EQ(renewMutex(lock), 0);
    mutexUnlock(&lock.mutex); // as every request does in service mode
    destroyMutex(lock);
    EXPECT_EQ(renewMutex(lock), 0);
    EXPECT_EQ(pthread_mutex_trylock(&lock.mutex), 0);
    EXPECT_EQ(pthread_mutex_trylock(&lock.mutex), EBUSY);
    pthread_mutex_unlock(&lock.mutex);
}

} // namespace

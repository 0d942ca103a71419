// SPDX-License-Identifier: Apache-2.0
#include "monitor/monitor.h"
#include "support/no_threads.h"
#include "support/store_fixture.h"

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <mutex>
#include <sched.h>
#include <semaphore>
#include <thread>
#include <unistd.h>
#include <utility>

using namespace tavstrg;

// The system's, but where a test has it refuse or know no thread. The program is linked so that calls come here.
static std::atomic<bool> joiningFails{false};
static std::atomic<bool> threadsAreUnknown{false};
extern "C" int __real_pthread_join(pthread_t thread, void **result);
extern "C" int __wrap_pthread_join(pthread_t thread, void **result)
{
    return joiningFails ? EINVAL : __real_pthread_join(thread, result);
}
extern "C" int __real_pthread_kill(pthread_t thread, int signal);
extern "C" int __wrap_pthread_kill(pthread_t thread, int signal)
{
    return threadsAreUnknown ? ESRCH : __real_pthread_kill(thread, signal);
}

namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::MatchesRegex;

class MonitoringThread : public StoreTest {
protected:
    MonitoringThread()
    {
        buildStore();
        g_srvmod = 1;
        trace->clear();
    }

    // As the initialisation does; the store is empty before.
    void buildStore()
    {
        fillSample(instSt);
        for (ShmInfo &shm : shmSt) {
            renewMutex(shm.mutex);
        }
        ASSERT_EQ(shmNew(&cInfo, 10, kShmKeyFileBase, instSt, shmSt), 0);
        gst_first = 2;
    }

    // Common to every end of the thread.
    static std::vector<std::string> tearDown(std::vector<std::string> lines)
    {
        for (int id = 0; id < TAV_CID_STRG_MAX; ++id) {
            lines.push_back("0 pthread_mutex_destroy(" + std::to_string(id) + ")");
        }
        lines.emplace_back("0 pthread_mutex_destroy(instMutexSt)");
        lines.emplace_back("0 _OUT_");
        return lines;
    }

    ~MonitoringThread() override
    {
        if (gst_thid != 0) {
            strgExitThread(&cInfo);
        }
        sim::atNth(sim::Call::cancelPoint, 0, nullptr);
        sim::holdSleeps(false);
    }

    // The thread works until its first sleep, which lasts until it is woken.
    void startAndSleep()
    {
        sim::holdSleeps(true);
        ASSERT_EQ(strgCreateThread(&cInfo), 0);
        ASSERT_TRUE(sim::awaitSleep(1, kPatience));
    }
    void wakeAndSleep()
    {
        const unsigned begun = sim::sleepsBegun();
        sim::wakeSleepers();
        ASSERT_TRUE(sim::awaitSleep(begun + 1, kPatience));
    }
    // Ends the thread without the provider.
    void kill()
    {
        pthread_cancel(threadNow(&gst_thid));
        for (int i = 0; getThreadSts(&gst_thid) == 1 && i < 3000; ++i) {
            usleep(10000);
        }
    }

    static constexpr double kPatience = 60; // seconds

    void expectTornDown()
    {
        EXPECT_EQ(gst_thid, 0U);
        EXPECT_EQ(gst_first, 0);
        EXPECT_EQ(segments(), 0);
        EXPECT_EQ(instSt[TAV_CID_STRG_HDD].datAdr, nullptr);
        EXPECT_FALSE(shmSt[0].mutex.live);
    }
};

TEST_F(MonitoringThread, IdentifierAndStateAreReturnedByAddress)
{
    EXPECT_EQ(strgGetThreadID(), &gst_thid);
    EXPECT_TRUE(trace->has(kDetail, "=== gst_thid=[0] ===", "strgGetThreadID"));
    EXPECT_EQ(strgGetFirstProc(), &gst_first);
    EXPECT_TRUE(trace->has(kDetail, "=== gst_first=[2] ===", "strgGetFirstProc"));
}

TEST_F(MonitoringThread, StartingWithoutCallInformationFails)
{
    EXPECT_EQ(strgCreateThread(nullptr), -1);
    EXPECT_THAT(linesOf("strgCreateThread"), ElementsAre("0 _IN_", "3 _OUT_ Param Failure!!"));
}

TEST_F(MonitoringThread, StoppingWithNoThreadStillSavesFreesAndResets)
{
    gst_thcInfo = static_cast<CInfo *>(memalloc(sizeof(CInfo)));
    strgExitThread(&cInfo);
    const std::vector<std::string> lines = linesOf("strgExitThread");
    EXPECT_THAT(lines[1], MatchesRegex("0 memfree\\(0x[0-9a-f]+\\)"));
    EXPECT_THAT(lines, ElementsAreArray(tearDown({"0 _IN_", lines[1]})));
    EXPECT_EQ(gst_thcInfo, nullptr);
    EXPECT_EQ(machine.read(kSavedStateFile).size(), 2074U);
    expectTornDown();
}

TEST_F(MonitoringThread, OutsideServiceModeTheStoreLockIsDestroyedToo)
{
    g_srvmod = 0;
    strgExitThread(&cInfo);
    expectTornDown();
    EXPECT_FALSE(instMutexSt.live);
}

TEST_F(MonitoringThread, StoppingAStoreThatIsGoneIsTracedAndResetsAllTheSame)
{
    strgExitThread(&cInfo);
    trace->clear();
    setSegment(shmSt[3], {-1, 2, nullptr}, false);
    strgExitThread(&cInfo);
    EXPECT_THAT(linesOf("strgExitThread"),
                ElementsAreArray(tearDown({"0 _IN_", "0 memfree already NULL", "3 strgSetInstance() Failure!!",
                                           "3 strgFreeInstance() Failure!!"})));
    setSegment(shmSt[3], {-1, 0, nullptr}, false);
    expectTornDown();
}

void *sleepUntilCancelled(void *)
{
    for (;;) {
        ::pause();
    }
    return nullptr;
}

TEST_F(MonitoringThread, StoppingCancelsAndJoinsTheThread)
{
    ASSERT_EQ(pthread_create(&gst_thid, nullptr, sleepUntilCancelled, nullptr), 0);
    const std::string id = std::to_string(static_cast<int>(gst_thid));
    strgExitThread(&cInfo);
    EXPECT_THAT(linesOf("strgExitThread"), ElementsAreArray(tearDown({"0 _IN_", "0 pthread_cancel(" + id + ")",
                                                                      "0 pthread_join()", "0 memfree already NULL"})));
    expectTornDown();
}

TEST_F(MonitoringThread, AJoinThatFailsIsTracedAndTheIdentifierCleared)
{
    pthread_t thread = 0;
    ASSERT_EQ(pthread_create(&thread, nullptr, sleepUntilCancelled, nullptr), 0);
    gst_thid = thread;
    joiningFails = true;
    strgExitThread(&cInfo);
    joiningFails = false;
    EXPECT_EQ(pthread_join(thread, nullptr), 0) << "cancelled all the same";
    EXPECT_TRUE(trace->has(kFailure, "pthread_join Failure!! errno=[22]", "strgExitThread"));
    expectTornDown();
}

TEST_F(MonitoringThread, TwoStopsAtTheSameMomentJoinItOnce)
{
    ASSERT_EQ(pthread_create(&gst_thid, nullptr, sleepUntilCancelled, nullptr), 0);
    std::thread other([&] { strgExitThread(&cInfo); });
    strgExitThread(&cInfo);
    other.join();
    const std::vector<std::string> texts = trace->textsOf("strgExitThread");
    EXPECT_EQ(std::ranges::count(texts, "pthread_join()"), 1);
    expectTornDown();
}

TEST_F(MonitoringThread, StartPreparesAContextAndTracesTheIdentifier)
{
    startAndSleep();
    ASSERT_NE(gst_thcInfo, nullptr);
    EXPECT_EQ(gst_thcInfo->broker, cInfo.broker);
    EXPECT_NE(gst_thcInfo->context, nullptr);
    EXPECT_NE(gst_thcInfo->context, cInfo.context) << "it outlives the request";
    char prepared[160];
    std::snprintf(prepared, sizeof prepared, "0 CBPrepareAttachThread() brk=[%p],ctx=[%p] -> th_brk=[%p],th_ctx=[%p]",
                  static_cast<const void *>(cInfo.broker), static_cast<const void *>(cInfo.context),
                  static_cast<const void *>(gst_thcInfo->broker), static_cast<const void *>(gst_thcInfo->context));
    EXPECT_THAT(linesOf("strgCreateThread"),
                ElementsAre("0 _IN_", prepared, "0 _OUT_ tid=[" + std::to_string(static_cast<int>(gst_thid)) + "]"));
    EXPECT_TRUE(trace->has(kDetail, "_IN_ size=[16]", "memalloc"));
    EXPECT_EQ(getThreadSts(&gst_thid), 1);
}

TEST_F(MonitoringThread, PassesAtOnceThenSleepsAndPassesInTurn)
{
    gst_SleepSec = 60;
    startAndSleep();
    char attached[96];
    std::snprintf(attached, sizeof attached, "0 CBAttachThread(brk=[%p],ctx=[%p])",
                  static_cast<const void *>(cInfo.broker), static_cast<const void *>(gst_thcInfo->context));
    std::vector<std::string> expected = {"0 _IN_", attached, "0 Thread_Loop start.", "0 strgCheckConfigChange()",
                                         "0 - sleep[60]sec -"};
    EXPECT_EQ(linesOf("strgWatchThread"), expected);
    EXPECT_STREQ(g_logfnm, "tavstrg.log");
    EXPECT_EQ(broker.calls("attachThread"), 1U);
    EXPECT_EQ(recordsIn<StrgHddRec>(instSt[TAV_CID_STRG_HDD]).size(), 2U) << "of the machine";

    gst_SleepSec = 90; // while it sleeps: for the next sleep
    wakeAndSleep();
    for (const char *const line : {"0 - wakeUp -", "0 strgCheckConfigChange()", "0 - sleep[90]sec -"}) {
        expected.emplace_back(line);
    }
    EXPECT_EQ(linesOf("strgWatchThread"), expected);
    EXPECT_EQ(broker.calls("detachThread"), 0U);
}

TEST_F(MonitoringThread, APassThatFailsDoesNotEndIt)
{
    sim::failNth(sim::Call::uname, 1);
    startAndSleep();
    EXPECT_TRUE(trace->has(kFailure, "strgCheckConfigChange() Failure!!", "strgWatchThread"));
    EXPECT_FALSE(machine.exists(kSavedStateFile));
    wakeAndSleep();
    EXPECT_TRUE(machine.exists(kSavedStateFile));
}

TEST_F(MonitoringThread, WorksWithoutAContextOfItsOwn)
{
    broker.failCall("prepareAttachThread", 1);
    startAndSleep();
    EXPECT_EQ(gst_thcInfo->context, nullptr);
    EXPECT_TRUE(machine.exists(kSavedStateFile));
}

TEST_F(MonitoringThread, ACycleThatOnlyDamageCanHaveMadeDoesNotLetItSpin)
{
    for (const int32_t cycle : {0, -1}) {
        gst_SleepSec = cycle;
        sim::skipSleeps(true);
        ASSERT_EQ(strgCreateThread(&cInfo), 0);
        while (sim::sleptSeconds() == 0) {
            sched_yield();
        }
        EXPECT_GE(sim::sleptSeconds(), 60);
        strgExitThread(&cInfo);
        EXPECT_TRUE(trace->has(kDetail, "- sleep[" + std::to_string(cycle) + "]sec -", "strgWatchThread"));
    }
}

TEST_F(MonitoringThread, OneThatDiedIsFoundGoneAndCanBeStartedAgain)
{
    for (int i = 0; i < 2; ++i) {
        startAndSleep();
        const std::string id = std::to_string(static_cast<int>(gst_thid));
        trace->clear();
        kill();
        EXPECT_EQ(gst_thid, 0U);
        const std::vector<std::string> lines = linesOf("getThreadSts");
        ASSERT_GE(lines.size(), 2U);
        EXPECT_EQ(lines[lines.size() - 2], "0 _IN_ tid=[" + id + "]");
        EXPECT_EQ(lines.back(), "0 _OUT_ thread is NotRun");
        EXPECT_EQ(getThreadSts(&gst_thid), 0);
        EXPECT_EQ(linesOf("getThreadSts").back(), "0 _OUT_ thread is non");
        EXPECT_EQ(gst_first, 2) << "the store stays";
    }
    startAndSleep();
    EXPECT_EQ(getThreadSts(&gst_thid), 1);
}

TEST_F(MonitoringThread, UnknownToTheSystemCanBeStartedAgain)
{
    gst_thid = pthread_self();
    threadsAreUnknown = true;
    EXPECT_EQ(getThreadSts(strgGetThreadID()), 0);
    threadsAreUnknown = false;
    EXPECT_EQ(std::exchange(gst_thid, 0), 0U);
    EXPECT_EQ(linesOf("getThreadSts").back(), "0 _OUT_ thread is NotRun");
    startAndSleep();
    EXPECT_EQ(getThreadSts(strgGetThreadID()), 1);
}

TEST_F(MonitoringThread, StoppingOneThatDiedFreesItsContextAndTheStore)
{
    startAndSleep();
    kill();
    trace->clear();
    strgExitThread(&cInfo);
    EXPECT_EQ(gst_thcInfo, nullptr);
    EXPECT_THAT(linesOf("strgExitThread"), testing::Not(Contains("0 pthread_join()")));
    expectTornDown();
}

TEST_F(MonitoringThread, WithoutMemoryForItsContextItIsNotStarted)
{
    if (!sim::allocationsCanFail()) {
        GTEST_SKIP() << "the allocator is the sanitizer's";
    }
    sim::failNth(sim::Call::allocate, 1);
    const int ret = strgCreateThread(&cInfo);
    sim::failNth(sim::Call::allocate, 0);
    EXPECT_EQ(ret, -1);
    EXPECT_THAT(linesOf("strgCreateThread"), ElementsAre("0 _IN_", "3 _OUT_ th_cInfo alloc Failure!!"));
    EXPECT_EQ(gst_thid, 0U);
    EXPECT_EQ(gst_thcInfo, nullptr);
    EXPECT_EQ(broker.calls("prepareAttachThread"), 0U);
}

TEST_F(MonitoringThread, OneThatTheSystemRefusesLeavesNoContext)
{
    {
        const NoStackForThreads hopeless;
        EXPECT_EQ(strgCreateThread(&cInfo), -1);
    }
    const std::vector<std::string> lines = linesOf("strgCreateThread");
    ASSERT_EQ(lines.size(), 4U);
    EXPECT_THAT(lines[2], MatchesRegex("3 _OUT_ pthread_create\\(\\) Failure!! err=\\[[0-9]+\\]"));
    EXPECT_THAT(lines[2], testing::Not(testing::HasSubstr("[0]")));
    EXPECT_THAT(lines[3], MatchesRegex("0 memfree\\(0x[0-9a-f]+\\)"));
    EXPECT_EQ(gst_thid, 0U);
    EXPECT_EQ(gst_thcInfo, nullptr);
}

// A stop that comes at each point of a pass where it can take effect: nothing is left, and a new start works.
TEST_F(MonitoringThread, AStopDuringAPassLeavesNothingWhereverItComes)
{
    unsigned points = 0;
    for (bool cancelled = true; cancelled; ++points) {
        ASSERT_LT(points, 1000U);
        if (points > 0) {
            buildStore();
        }
        machine.remove(kSavedStateFile);
        sim::holdSleeps(true);
        std::atomic<bool> reached{false};
        const unsigned before = sim::cancelsRequested();
        sim::atNth(sim::Call::cancelPoint, points + 1, [&] {
            reached = true;
            while (sim::cancelsRequested() == before) {
                sched_yield();
            }
        });
        trace->clear();
        ASSERT_EQ(strgCreateThread(&cInfo), 0);
        while (!reached) {
            sched_yield();
        }
        strgExitThread(&cInfo);
        cancelled = sim::sleepsBegun() == 0; // in the sleep at the latest
        EXPECT_THAT(trace->textsOf("strgCheckConfigChange").back(),
                    testing::StartsWith(cancelled ? "strgGetCurrentInfo()" : "_OUT_ ret=[0]"));
        ASSERT_EQ(machine.openDescriptors(), 0) << points;
        ASSERT_TRUE(g_collectionLock.try_lock()) << points;
        g_collectionLock.unlock();
        expectTornDown();
    }
    EXPECT_GT(points, 5U);
}

TEST_F(MonitoringThread, AStopEndsItAlsoWhileItWaitsForAnothersPass)
{
    std::binary_semaphore taken(0);
    std::binary_semaphore end(0);
    std::thread other([&] {
        const std::lock_guard held(g_collectionLock);
        taken.release();
        end.acquire();
    });
    taken.acquire();
    ASSERT_EQ(strgCreateThread(&cInfo), 0);
    kill();
    EXPECT_EQ(getThreadSts(&gst_thid), 0);
    EXPECT_THAT(trace->textsOf("strgCheckConfigChange"), ElementsAre("_IN_"));
    end.release();
    other.join();
}

TEST_F(MonitoringThread, ItsStatusMayBeAskedWhileItStartsDiesAndStops)
{
    std::atomic<bool> end{false};
    std::vector<std::thread> askers;
    for (int i = 0; i < 3; ++i) {
        askers.emplace_back([&end] {
            while (!end) {
                getThreadSts(strgGetThreadID());
            }
        });
    }
    for (int i = 0; i < 6; ++i) {
        startAndSleep();
        if (i % 2 == 0) {
            kill();
        }
        strgExitThread(&cInfo);
        gst_first = 2;
    }
    end = true;
    for (std::thread &asker : askers) {
        asker.join();
    }
    EXPECT_EQ(gst_thid, 0U);
}

} // namespace

// SPDX-License-Identifier: Apache-2.0
#include "lifecycle/access.h"
#include "monitor/monitor.h"
#include "support/store_fixture.h"

#include <atomic>
#include <chrono>
#include <semaphore>
#include <thread>

using namespace tavstrg;

namespace {

using testing::Contains;
using testing::ElementsAreArray;
using testing::Not;

class CleanUp : public StoreTest {
protected:
    CleanUp()
    {
        EXPECT_EQ(strgInitProvider(&cInfo), 0);
        trace->clear();
    }

    CMPIStatus cleanUp(bool terminating = false)
    {
        const CInfo inCleanup = {broker.handle(), nullptr};
        return strgCleanUpProvider(&inCleanup, terminating);
    }

    static std::string messageOf(const CMPIStatus &status)
    {
        return status.msg == nullptr ? "" : CMGetCharPtr(status.msg);
    }

    static std::vector<std::string> withDestroyedLocks(std::vector<std::string> lines)
    {
        for (int id = 0; id < TAV_CID_STRG_MAX; ++id) {
            lines.push_back("0 pthread_mutex_destroy(" + std::to_string(id) + ")");
        }
        lines.emplace_back("0 pthread_mutex_destroy(instMutexSt)");
        lines.emplace_back("0 _OUT_");
        return lines;
    }
};

TEST_F(CleanUp, OutsideServiceModeSavesFreesAndForgets)
{
    g_srvmod = -1; // not known yet; must not be asked here
    broker.forgetCalls();
    const CMPIStatus status = cleanUp();
    EXPECT_EQ(broker.calls("*"), 0U) << "a cleanup must not call the broker";
    EXPECT_EQ(status.rc, CMPI_RC_OK);
    EXPECT_EQ(status.msg, nullptr);
    EXPECT_THAT(linesOf("strgCleanUpProvider"),
                ElementsAreArray(withDestroyedLocks({"0 _IN_", "0 strgSetInstance()", "0 strgFreeInstance()"})));
    EXPECT_EQ(gst_first, 0);
    EXPECT_EQ(segments(), 0);
    EXPECT_FALSE(instMutexSt.live);
    EXPECT_FALSE(shmSt[10].mutex.live);
    EXPECT_EQ(machine.read(kSavedStateFile).size(), 18U + 12 + 20 + 120 + 2 * 352 + 2 * 284);
}

TEST_F(CleanUp, TwiceInARowReportsThatItIsDone)
{
    cleanUp();
    trace->clear();
    EXPECT_EQ(cleanUp().rc, CMPI_RC_OK);
    EXPECT_THAT(linesOf("strgCleanUpProvider"),
                ElementsAreArray({"0 _IN_", "0 _OUT_ rc=[CMPI_RC_OK] Already CleanUp."}));
}

TEST_F(CleanUp, ARequestAfterwardsInitialisesAgainFromTheFile)
{
    cleanUp();
    EXPECT_EQ(strgInitProvider(&cInfo), 0);
    DatInfo dat = {};
    EXPECT_EQ(strgGetInstance(&cInfo, TAV_CID_STRG_HDD, &dat), 0) << "with locks that work";
    EXPECT_EQ(dat.datNum, 2);
}

TEST_F(CleanUp, AStateThatCannotBeSavedFailsItAndKeepsTheStore)
{
    machine.remove("/opt/qlm/tavkit_sa/data");
    const CMPIStatus status = cleanUp();
    EXPECT_EQ(status.rc, CMPI_RC_ERR_FAILED);
    EXPECT_EQ(messageOf(status), "strgSetInstance() Failure!!");
    EXPECT_TRUE(trace->has(kFailure, "strgSetInstance Failure!!", "strgCleanUpProvider"));
    EXPECT_EQ(gst_first, 2);
    EXPECT_EQ(instSt[TAV_CID_STRG_HDD].datNum, 2);
}

TEST_F(CleanUp, ASegmentThatCannotBeDestroyedFailsIt)
{
    const Segment segment = segmentNow(shmSt[3]);
    setSegment(shmSt[3], {-1, 2, nullptr}, false);
    const CMPIStatus status = cleanUp();
    EXPECT_EQ(status.rc, CMPI_RC_ERR_FAILED);
    EXPECT_EQ(messageOf(status), "strgFreeInstance() Failure!!");
    EXPECT_TRUE(trace->has(kFailure, "strgFreeInstance Failure!!", "strgCleanUpProvider"));
    EXPECT_EQ(gst_first, 2);
    ::shmctl(segment.id, IPC_RMID, nullptr);
}

TEST_F(CleanUp, ThoseThatOverlapWorkOnceAndAllReturn)
{
    std::vector<std::thread> threads;
    std::atomic<int> ok = 0;
    for (int i = 0; i < 6; ++i) {
        threads.emplace_back([&] { ok += cleanUp(true).rc == CMPI_RC_OK ? 1 : 0; });
    }
    for (std::thread &thread : threads) {
        thread.join();
    }
    EXPECT_EQ(ok, 6);
    const std::vector<std::string> texts = trace->textsOf("strgCleanUpProvider");
    EXPECT_EQ(std::ranges::count(texts, "strgFreeInstance()"), 1);
    EXPECT_EQ(std::ranges::count(texts, "_OUT_ rc=[CMPI_RC_OK] Already CleanUp."), 5);
}

TEST_F(CleanUp, AStoreUnderConstructionIsNeitherSavedNorFreed)
{
    sim::skipSleeps(true);
    gst_first = 1;
    EXPECT_EQ(cleanUp().rc, CMPI_RC_ERR_FAILED);
    EXPECT_NEAR(sim::sleptSeconds(), 3.0, 0.01);
    EXPECT_FALSE(machine.exists(kSavedStateFile));
    EXPECT_EQ(instSt[TAV_CID_STRG_HDD].datNum, 2);
    gst_first = 2;
}

// The request comes in while the cleanup frees what an initialisation that failed had left.
TEST_F(CleanUp, LeavesAStoreThatARequestBuildsMeanwhile)
{
    cleanUp();
    const int left = ::shmget(IPC_PRIVATE, 8, IPC_CREAT | 0600);
    ASSERT_GT(left, 0);
    setSegment(shmSt[TAV_CID_STRG_SCSI], {left, 1, nullptr}, false);
    trace->clear();
    std::thread client;
    std::atomic<int> built = -1;
    sim::atNth(sim::Call::segment, 1, [&] { // its removal
        client = std::thread([&] { built = strgInitProvider(&cInfo); });
        const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(300);
        while (gst_first != 2 && std::chrono::steady_clock::now() < end) {
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
    });
    EXPECT_EQ(cleanUp().rc, CMPI_RC_OK);
    ASSERT_TRUE(client.joinable());
    client.join();
    EXPECT_EQ(built, 0);
    EXPECT_THAT(trace->textsOf("strgCleanUpProvider"), Contains("_OUT_ rc=[CMPI_RC_OK] Already CleanUp."));
    EXPECT_THAT(process::segmentsOf(::getpid(), 0), Not(Contains(testing::Field(&process::Segment::id, left))));
    EXPECT_EQ(segments(), 5) << "configuration, totals, controller and both kinds of record of the disks";
    DatInfo disks = {};
    EXPECT_EQ(strgGetInstance(&cInfo, TAV_CID_STRG_HDD, &disks), 0);
    EXPECT_EQ(disks.datNum, 2);
}

class ServiceCleanUp : public CleanUp {
protected:
    ServiceCleanUp() { g_srvmod = 1; }
};

TEST_F(ServiceCleanUp, WithoutTheThreadOnlyFreesTheStore)
{
    for (const bool terminating : {false, true}) {
        trace->clear();
        EXPECT_EQ(cleanUp(terminating).rc, CMPI_RC_OK);
        EXPECT_THAT(linesOf("strgCleanUpProvider"),
                    ElementsAreArray({"0 _IN_", "0 ServiceMode but Non-Thread.", "0 _OUT_ rc=[CMPI_RC_OK]"}));
    }
    EXPECT_EQ(segments(), 0);
    EXPECT_FALSE(machine.exists(kSavedStateFile)) << "not saved";
    EXPECT_EQ(gst_first, 2) << "left as it is";
    EXPECT_TRUE(instMutexSt.live) << "not destroyed";
}

TEST_F(ServiceCleanUp, AFreeThatFailsIsOnlyTraced)
{
    const Segment segment = segmentNow(shmSt[3]);
    setSegment(shmSt[3], {-1, 2, nullptr}, false);
    EXPECT_EQ(cleanUp().rc, CMPI_RC_OK);
    EXPECT_TRUE(trace->has(kFailure, "fsFreeInstance() Failure!!", "strgCleanUpProvider"));
    ::shmctl(segment.id, IPC_RMID, nullptr);
}

TEST_F(ServiceCleanUp, ATimeOutWhileTheThreadRunsIsRefused)
{
    std::binary_semaphore end(0);
    std::thread thread([&] { end.acquire(); });
    gst_thid = thread.native_handle();
    const CMPIStatus status = cleanUp(false);
    EXPECT_EQ(status.rc, CMPI_RC_DO_NOT_UNLOAD);
    EXPECT_EQ(messageOf(status), "MonitorThread is Running!!");
    EXPECT_THAT(linesOf("strgCleanUpProvider"),
                ElementsAreArray({"0 _IN_", "0 CleanUp TimeOut.", "0 _OUT_ rc=[CMPI_RC_DO_NOT_UNLOAD]"}));
    EXPECT_EQ(instSt[TAV_CID_STRG_HDD].datNum, 2);
    gst_thid = 0;
    end.release();
    thread.join();
}

void *sleepUntilCancelled(void *)
{
    for (;;) {
        ::pause();
    }
    return nullptr;
}

TEST_F(ServiceCleanUp, TheEndOfTheBrokerStopsTheThread)
{
    ASSERT_EQ(pthread_create(&gst_thid, nullptr, sleepUntilCancelled, nullptr), 0);
    EXPECT_EQ(cleanUp(true).rc, CMPI_RC_OK);
    EXPECT_THAT(linesOf("strgCleanUpProvider"),
                ElementsAreArray({"0 _IN_", "0 CleanUp Exit SFCB.", "0 _OUT_ rc=[CMPI_RC_OK]"}));
    EXPECT_EQ(gst_thid, 0U);
    EXPECT_EQ(gst_first, 0);
    EXPECT_EQ(segments(), 0);
    EXPECT_TRUE(machine.exists(kSavedStateFile));
}

// With the monitoring thread itself, in its sleep.
TEST_F(ServiceCleanUp, TwoAtOnceStopTheThreadOnceAndTheNextRequestRebuilds)
{
    for (int i = 0; i < 2; ++i) {
        sim::holdSleeps(true);
        trace->clear();
        ASSERT_EQ(strgCreateThread(&cInfo), 0);
        ASSERT_TRUE(sim::awaitSleep(1, 60));
        broker.forgetCalls();
        std::vector<std::thread> threads;
        std::atomic<int> ok = 0;
        for (int n = 0; n < 2; ++n) {
            threads.emplace_back([&] { ok += cleanUp(true).rc == CMPI_RC_OK ? 1 : 0; });
        }
        for (std::thread &thread : threads) {
            thread.join();
        }
        EXPECT_EQ(ok, 2);
        EXPECT_EQ(std::ranges::count(trace->textsOf("strgExitThread"), "pthread_join()"), 1);
        EXPECT_THAT(trace->textsOf("strgCleanUpProvider"), Contains("ServiceMode but Non-Thread."));
        EXPECT_EQ(segments(), 0);
        EXPECT_EQ(broker.calls("*"), 0U) << "a cleanup must not call the broker";
        g_srvmod = i; // either mode
        DatInfo disks = {};
        ASSERT_EQ(strgInitProvider(&cInfo), 0);
        EXPECT_EQ(strgGetInstance(&cInfo, TAV_CID_STRG_HDD, &disks), 0);
        EXPECT_EQ(disks.datNum, 2);
        g_srvmod = 1;
    }
    sim::holdSleeps(false);
}

} // namespace

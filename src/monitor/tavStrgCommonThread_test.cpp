#include "monitor/tavStrgCommonMonitor.h"
#include "store/records/tavStrgStoreFixture_test.h"

#include <thread>
#include <unistd.h>

namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::MatchesRegex;

class MonitoringThread : public StoreTest {
protected:
    MonitoringThread()
    {
        fillSample(instSt);
        EXPECT_EQ(shmNew(&cInfo, 10, kShmKeyFileBase, instSt, shmSt), 0);
        gst_first = 2;
        g_srvmod = 1;
        trace->clear();
    }

    // What follows the end of the thread in any case.
    static std::vector<std::string> tearDown(std::vector<std::string> lines)
    {
        for (int id = 0; id < TAV_CID_STRG_MAX; ++id) {
            lines.push_back("0 pthread_mutex_destroy(" + std::to_string(id) + ")");
        }
        lines.emplace_back("0 pthread_mutex_destroy(instMutexSt)");
        lines.emplace_back("0 _OUT_");
        return lines;
    }

    void expectTornDown()
    {
        EXPECT_EQ(gst_thid, 0U);
        EXPECT_EQ(gst_first, 0);
        EXPECT_EQ(segments(), 0);
        EXPECT_EQ(instSt[TAV_CID_STRG_HDD].datAdr, nullptr);
        EXPECT_FALSE(shmSt[0].mutex.live);
    }
};

TEST_F(MonitoringThread, IdentifierAndInitialisationStateAreHandedOutByAddress)
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

TEST_F(MonitoringThread, StartingIsRefusedWhereThereIsNoThreadRoutine)
{
    EXPECT_EQ(strgCreateThread(&cInfo), -1);
    EXPECT_THAT(linesOf("strgCreateThread"), ElementsAre("0 _IN_", "3 _OUT_ pthread_create() Failure!! err=[38]"));
    EXPECT_EQ(gst_thid, 0U);
    EXPECT_EQ(gst_thcInfo, nullptr);
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
    std::thread thread([] { sleepUntilCancelled(nullptr); });
    gst_thid = thread.native_handle();
    thread.detach(); // such a thread cannot be joined
    strgExitThread(&cInfo);
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

} // namespace

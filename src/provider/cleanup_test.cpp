// SPDX-License-Identifier: Apache-2.0
#include "disks/current/current.h"
#include "runtime/trace.h"
#include "support/entry_points.h"
#include "support/fake_agent.h"
#include "support/held_call.h"
#include "support/options_fixture.h"

#include <atomic>
#include <gmock/gmock.h>
#include <thread>
#include <unistd.h>

using namespace tavstrg;

using broker::Request;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

// A thread that can be cancelled at any moment, in place of the monitoring thread.
void *pauseForEver(void *)
{
    for (;;) {
        pause();
    }
}

class CleanUp : public EntryPoints {
protected:
    CMPIStatus instance(bool terminating)
    {
        return instanceMI->ft->cleanup(instanceMI, broker.emptyContext(), terminating ? 1 : 0);
    }
    CMPIStatus method(bool terminating)
    {
        return methodMI->ft->cleanup(methodMI, broker.emptyContext(), terminating ? 1 : 0);
    }
    static constexpr const char *kInstance = "TAV_StorageProviderCleanup";
    static constexpr const char *kMethod = "TAV_StorageProviderMethodCleanup";
};

TEST_F(CleanUp, IsRefusedWhileTheThreadRunsAndThePlaceIsKept)
{
    FakeAgent agent;
    for (const char *const function : {kInstance, kMethod}) {
        SCOPED_TRACE(function);
        const Request request(broker, "TAV_StorageThread");
        const CMPIStatus status = function == kInstance ? instance(false) : method(false);
        EXPECT_EQ(status.rc, CMPI_RC_DO_NOT_UNLOAD);
        EXPECT_EQ(request.reply(status).message, "MonitorThread is Running!!");
        EXPECT_THAT(agent.closed, IsEmpty());
        EXPECT_NE(g_Func.trace.handle.load(), nullptr);
        EXPECT_NE(g_Func.alert.handle.load(), nullptr);
        const std::string name = function;
        EXPECT_THAT(agent.lines, testing::Contains("3||" + name + "|##start## cterm=[TimeOut]"));
        EXPECT_THAT(agent.lines, testing::Contains("0||" + name + "|strgCleanUpProvider()"));
        EXPECT_THAT(agent.lines, testing::Contains("3||" + name + "|## end ## ret=[50]"));
        EXPECT_THAT(agent.lines, testing::Contains("0||strgCleanUpProvider|CleanUp TimeOut."));
    }
    EXPECT_EQ(gst_first, 2);
    EXPECT_NE(instSt[TAV_CID_STRG_CONF].datAdr, nullptr);
}

TEST_F(CleanUp, StopsAtTheBrokersEndTheThreadKeptByAnIdleCleanup)
{
    FakeAgent agent;
    pthread_t idle = 0;
    ASSERT_EQ(pthread_create(&idle, nullptr, pauseForEver, nullptr), 0);
    *strgGetThreadID() = idle;
    const Request request(broker, "TAV_StorageThread");
    EXPECT_EQ(request.reply(instance(false)).rc, CMPI_RC_DO_NOT_UNLOAD);
    EXPECT_THAT(agent.closed, IsEmpty());
    EXPECT_EQ(instance(true).rc, CMPI_RC_OK);
    EXPECT_THAT(agent.closed, ElementsAre("libtavalert.so", "libtavlog.so"));
    EXPECT_EQ(*strgGetThreadID(), 0u);
    EXPECT_EQ(gst_first, 0);
    EXPECT_THAT(agent.lines, testing::Contains("0||strgCleanUpProvider|CleanUp Exit SFCB."));
}

TEST_F(CleanUp, OutsideServiceModeSavesFreesAndUnloads)
{
    FakeAgent agent;
    g_srvmod = 0;
    noThread();
    EXPECT_EQ(instance(false).rc, CMPI_RC_OK);
    EXPECT_THAT(agent.closed, ElementsAre("libtavalert.so", "libtavlog.so"));
    EXPECT_TRUE(machine.exists(kSavedStateFile));
    EXPECT_EQ(gst_first, 0);
    EXPECT_EQ(agent.lines.front(), "3||TAV_StorageProviderCleanup|##start## cterm=[TimeOut]");
    EXPECT_EQ(agent.lines.back(), "3||TAV_StorageProviderCleanup|## end ## ret=[0]");
    // The cleanup of the method provider follows: it loads the libraries again and finds nothing to do.
    agent.lines.clear();
    EXPECT_EQ(method(true).rc, CMPI_RC_OK);
    EXPECT_EQ(agent.closed.size(), 4u);
    EXPECT_EQ(agent.lines.front(), "3||TAV_StorageProviderMethodCleanup|##start## cterm=[ExitSFCB]");
    EXPECT_THAT(agent.lines, testing::Contains("0||strgCleanUpProvider|_OUT_ rc=[CMPI_RC_OK] Already CleanUp."));
    EXPECT_EQ(agent.lines.back(), "3||TAV_StorageProviderMethodCleanup|## end ## ret=[0]");
}

TEST_F(CleanUp, IsRefusedWhileARequestForTheDisksIsAtWork)
{
    FakeAgent agent;
    g_srvmod = 0;
    noThread();
    machine.write(OptionsInForce::kFile, "every-disk\n");
    HeldCall listing(sim::Call::list);
    std::thread client([this] { EXPECT_EQ(enumerate("TAV_StorageDisk").message, "the provider is stopping"); });
    listing.await();
    const Request request(broker, "TAV_StorageThread");
    const CMPIStatus status = instance(false);
    EXPECT_EQ(status.rc, CMPI_RC_DO_NOT_UNLOAD);
    EXPECT_EQ(request.reply(status).message, "A request for the disks is still at work");
    EXPECT_THAT(agent.closed, IsEmpty());
    EXPECT_EQ(gst_first, 2);
    listing.release();
    client.join();
    EXPECT_EQ(instance(false).rc, CMPI_RC_OK);
}

TEST_F(CleanUp, ThatFailsLeavesTheLibrariesLoaded)
{
    FakeAgent agent;
    g_srvmod = 0;
    noThread();
    machine.remove("/opt/qlm/tavkit_sa/data");
    const Request request(broker, "TAV_StorageThread");
    const CMPIStatus status = instance(true);
    EXPECT_EQ(status.rc, CMPI_RC_ERR_FAILED);
    EXPECT_EQ(request.reply(status).message, "strgSetInstance() Failure!!");
    EXPECT_THAT(agent.closed, IsEmpty());
    EXPECT_EQ(agent.lines.back(), "3||TAV_StorageProviderCleanup|## end ## ret=[1]");
}

TEST_F(CleanUp, CallsNothingOfTheBrokersWithItsEmptyContext)
{
    g_srvmod = -1;
    broker.setServiceMode(true);
    noThread();
    broker.forgetCalls();
    EXPECT_EQ(instance(true).rc, CMPI_RC_OK);
    EXPECT_EQ(broker.calls("getInstance"), 0u);
    EXPECT_TRUE(trace.has(kFailure, "_OUT_ CBGetInstance() Failure!!", "getServiceMode"));
}

TEST_F(CleanUp, MayBeEnteredAgainWhileItRuns)
{
    FakeAgent agent;
    g_srvmod = 0;
    noThread();
    std::vector<std::thread> threads;
    std::atomic<int> good{0};
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([&, i] { good += (i % 2 == 0 ? instance(true) : method(true)).rc == CMPI_RC_OK ? 1 : 0; });
    }
    for (std::thread &thread : threads) {
        thread.join();
    }
    EXPECT_EQ(good, 4);
    EXPECT_EQ(agent.opened.size(), agent.closed.size());
    int depth = 0; // of cleanups that run
    for (const std::string &line : agent.lines) {
        depth += line.find("##start##") != std::string::npos ? 1 : 0;
        EXPECT_LE(depth, 1);
        depth -= line.find("## end ##") != std::string::npos ? 1 : 0;
    }
}

} // namespace

// SPDX-License-Identifier: Apache-2.0
#include "classes/classes.h"
#include "runtime/trace.h"
#include "support/no_threads.h"
#include "support/store_fixture.h"

#include <gmock/gmock.h>
#include <thread>
#include <unistd.h>

using namespace tavstrg;

using broker::Reply;
using broker::Request;
using testing::ElementsAre;

namespace {

class ThreadClass : public ServedStore {
protected:
    Reply get(const std::vector<std::string> *properties = nullptr)
    {
        Request request(broker, "TAV_StorageThread");
        if (properties != nullptr) {
            request.setProperties(*properties);
        }
        const CInfo cInfo = {broker.handle(), request.context()};
        return request.reply(TAV_STRGThreadGetInstance(&cInfo, request.result(), request.path(), request.properties()));
    }
    Reply start()
    {
        Request request(broker, "TAV_StorageThread");
        const CInfo cInfo = {broker.handle(), request.context()};
        return request.reply(TAV_STRGThreadStartInvokeMethod(&cInfo, request.result()));
    }
    Reply stop()
    {
        Request request(broker, "TAV_StorageThread");
        const CInfo cInfo = {broker.handle(), request.context()};
        return request.reply(TAV_STRGThreadStopInvokeMethod(&cInfo, request.result()));
    }
    void noThread() { *strgGetThreadID() = 0; }
    static constexpr const char *kStart = "TAV_STRGThreadStartInvokeMethod";
    static constexpr const char *kStop = "TAV_STRGThreadStopInvokeMethod";
    static constexpr const char *kGet = "TAV_STRGThreadGetInstance";
    static constexpr const char *kBuild = "TAV_STRGThreadSetPropInst";
};

TEST_F(ThreadClass, ThreadRunningIsTheThreadsStatus)
{
    for (const bool running : {true, false}) {
        if (!running) {
            noThread();
        }
        trace.clear();
        const Reply reply = get();
        ASSERT_EQ(reply.rc, CMPI_RC_OK) << reply.message;
        EXPECT_TRUE(reply.done);
        ASSERT_EQ(reply.instances.size(), 1u);
        EXPECT_EQ(reply.instances[0].className, "TAV_StorageThread");
        EXPECT_TRUE(reply.instances[0].keys.empty());
        ASSERT_EQ(reply.instances[0].properties.size(), 1u);
        EXPECT_EQ(reply.instances[0].properties[0].name, "ThreadRunning");
        EXPECT_EQ(reply.instances[0].properties[0].value.type, CMPI_uint16);
        EXPECT_EQ(reply.instances[0].properties[0].value.toString(), running ? "1" : "0");
        EXPECT_THAT(trace.linesOf(kGet), ElementsAre("0 _IN_", "0 CMReturnInstance()", "0 CMReturnDone()", "0 _OUT_"));
        EXPECT_THAT(trace.textsOf(kBuild),
                    ElementsAre("_IN_", "CMNewObjectPath() NameSpace=[root/TAVKIT/AS]",
                                testing::StartsWith("memfree(0x"), "CMNewInstance()", "CMSetPropertyFilter()",
                                std::string("CMSetProperty() ThreadRunning=[") + (running ? "1]" : "0]"), "_OUT_"));
    }
}

TEST_F(ThreadClass, APropertyListMayLeaveItOut)
{
    const std::vector<std::string> list = {"Other"};
    const Reply reply = get(&list);
    ASSERT_EQ(reply.instances.size(), 1u);
    EXPECT_TRUE(reply.instances[0].properties.empty());
}

TEST_F(ThreadClass, SetPropInstChecksItsParametersInOrder)
{
    const Request request(broker, "TAV_StorageThread");
    const CInfo cInfo = {broker.handle(), request.context()};
    const uint16_t status = 1;
    EXPECT_EQ(TAV_STRGThreadSetPropInst(nullptr, nullptr, nullptr, nullptr), nullptr);
    EXPECT_EQ(TAV_STRGThreadSetPropInst(&cInfo, nullptr, nullptr, &status), nullptr);
    EXPECT_EQ(TAV_STRGThreadSetPropInst(&cInfo, request.path(), nullptr, nullptr), nullptr);
    EXPECT_THAT(trace.linesOf(kBuild),
                ElementsAre("0 _IN_", "3 _OUT_ param(cInfo) Failure!!", "0 _IN_", "3 _OUT_ Param(cop) Failure!!",
                            "0 _IN_", "3 _OUT_ Param(dattotal) Failure!!"));
}

TEST_F(ThreadClass, APropertyThatIsNotTakenIsNoFailure)
{
    broker.failCall("setProperty", 1);
    const Reply reply = get();
    EXPECT_TRUE(broker.failureStruck());
    EXPECT_EQ(reply.rc, CMPI_RC_OK) << reply.message;
    ASSERT_EQ(reply.instances.size(), 1u);
    EXPECT_TRUE(reply.instances[0].properties.empty());
}

// Objects alive when a function begins to set the property filter of an instance.
const broker::Broker *watched;
int64_t aliveAtFilter;
void countAtFilter(int, const char *, const char *, int, const char *format, ...)
{
    if (std::strcmp(format, "CMSetPropertyFilter()") == 0) {
        aliveAtFilter = watched->accounting().live;
    }
}

TEST_F(ThreadClass, PathIsReleasedOnceTheInstanceIsMade)
{
    // Outside a request every object counts: only the request's path and the instance exist.
    CMPIObjectPath *const cop =
        broker.handle()->eft->newObjectPath(broker.handle(), "root/TAVKIT/AS", "TAV_StorageThread", nullptr);
    const uint16_t status = 1;
    watched = &broker;
    aliveAtFilter = 0;
    g_Func.trace.TraceLog = countAtFilter;
    CMPIInstance *const instance = TAV_STRGThreadSetPropInst(&outside, cop, nullptr, &status);
    g_Func.trace.TraceLog = nullptr;
    EXPECT_EQ(aliveAtFilter, 2);
    ASSERT_NE(instance, nullptr);
    instance->ft->release(instance);
    cop->ft->release(cop);
}

TEST_F(ThreadClass, WithoutCallInformationThereIsNoMessage)
{
    const CMPIStatus statuses[] = {TAV_STRGThreadGetInstance(nullptr, nullptr, nullptr, nullptr),
                                   TAV_STRGThreadStartInvokeMethod(nullptr, nullptr),
                                   TAV_STRGThreadStopInvokeMethod(nullptr, nullptr)};
    for (const CMPIStatus &status : statuses) {
        EXPECT_EQ(status.rc, CMPI_RC_ERR_FAILED);
        EXPECT_EQ(status.msg, nullptr);
    }
    for (const char *const function : {kGet, kStart, kStop}) {
        EXPECT_THAT(trace.linesOf(function), ElementsAre("0 _IN_", "3 param(cInfo) Failure!!", "0 _OUT_"));
    }
}

TEST_F(ThreadClass, AnInstanceThatCannotBeBuiltOrTakenFails)
{
    for (const FailingBuild &c : kFailingBuilds) {
        broker.failCall(c.slot, 1);
        const Reply reply = get();
        EXPECT_EQ(reply.rc, CMPI_RC_ERR_FAILED) << c.slot;
        EXPECT_EQ(reply.message, "TAV_STRGThreadSetPropInst() FAILED");
        EXPECT_TRUE(trace.has(kFailure, c.text, kBuild)) << c.slot;
        EXPECT_TRUE(trace.has(kFailure, "TAV_STRGThreadSetPropInst() Failure!!", kGet));
    }
    broker.failCall("returnInstance", 1);
    const Reply reply = get();
    EXPECT_EQ(reply.rc, CMPI_RC_ERR_FAILED);
    EXPECT_EQ(reply.message, "CMReturnInstance() FAILED");
    EXPECT_FALSE(reply.done);
    EXPECT_TRUE(trace.has(kFailure, "CMReturnInstance() Failure!!", kGet));
}

TEST_F(ThreadClass, MethodsAreRefusedOutsideServiceMode)
{
    g_srvmod = 0;
    for (const bool running : {true, false}) {
        if (!running) {
            noThread();
        }
        trace.clear();
        Reply reply = start();
        EXPECT_EQ(reply.rc, CMPI_RC_ERR_FAILED);
        EXPECT_EQ(reply.message, "ServiceMode is non-Service FAILED");
        EXPECT_THAT(trace.linesOf(kStart), ElementsAre("0 _IN_", "3 ServiceMode is non-Service Failure!!", "0 _OUT_"));
        reply = stop();
        EXPECT_EQ(reply.rc, CMPI_RC_ERR_FAILED);
        EXPECT_EQ(reply.message, "ServiceMode is non-Service FAILED");
        EXPECT_THAT(trace.linesOf(kStop), ElementsAre("0 _IN_", "3 ServiceMode is non-Service Failure!!", "0 _OUT_"));
    }
}

TEST_F(ThreadClass, AStartWhileTheThreadRunsIsRefusedAndChangesNothing)
{
    const Reply reply = start();
    EXPECT_EQ(reply.rc, CMPI_RC_ERR_FAILED);
    EXPECT_EQ(reply.message, "Thread is Already WakeUp FAILED");
    EXPECT_TRUE(trace.has(kFailure, "Thread is Already WakeUp Failure!!", kStart));
    EXPECT_TRUE(trace.textsOf("strgCreateThread").empty());
    EXPECT_EQ(*strgGetThreadID(), pthread_self());
    EXPECT_NE(instSt[TAV_CID_STRG_CONF].datAdr, nullptr);
}

// A thread that can be cancelled at any moment, in place of the monitoring thread.
void *pauseForEver(void *)
{
    for (;;) {
        pause();
    }
}

TEST_F(ThreadClass, AStopEndsTheThreadAndTearsTheStoreDown)
{
    pthread_t idle = 0;
    ASSERT_EQ(pthread_create(&idle, nullptr, pauseForEver, nullptr), 0);
    *strgGetThreadID() = idle;
    const Reply reply = stop();
    EXPECT_EQ(reply.rc, CMPI_RC_OK) << reply.message;
    EXPECT_EQ(reply.message, "");
    EXPECT_TRUE(reply.data.empty());
    EXPECT_THAT(trace.textsOf(kStop), ElementsAre("_IN_", "_OUT_"));
    EXPECT_EQ(*strgGetThreadID(), 0u);
    EXPECT_EQ(gst_first, 0);
    EXPECT_EQ(instSt[TAV_CID_STRG_CONF].datAdr, nullptr);
    EXPECT_TRUE(machine.exists(kSavedStateFile));
}

TEST_F(ThreadClass, StopWithoutAThreadIsRefusedAndFreesTheStore)
{
    noThread();
    const Reply reply = stop();
    EXPECT_EQ(reply.rc, CMPI_RC_ERR_FAILED);
    EXPECT_EQ(reply.message, "Thread is Already Pause FAILED");
    EXPECT_TRUE(trace.has(kFailure, "Thread is Already Pause Failure!!", kStop));
    EXPECT_EQ(instSt[TAV_CID_STRG_CONF].datAdr, nullptr);
    EXPECT_EQ(shmSt[TAV_CID_STRG_CONF].shmNum, 0);
    EXPECT_EQ(gst_first, 2);
}

TEST_F(ThreadClass, ARefusedStopOutsideServiceModeFreesTheStoreToo)
{
    g_srvmod = 0;
    stop();
    EXPECT_EQ(instSt[TAV_CID_STRG_CONF].datAdr, nullptr);
    EXPECT_EQ(shmSt[TAV_CID_STRG_CONF].shmNum, 0);
}

TEST_F(ThreadClass, AStoreThatCannotBeFreedIsOnlyTraced)
{
    const int segment = std::exchange(shmSt[TAV_CID_STRG_CONF].shmId, -1); // records, but no segment to remove
    noThread();
    EXPECT_EQ(stop().message, "Thread is Already Pause FAILED");
    EXPECT_TRUE(trace.has(kFailure, "fsFreeInstance() Failure!!", kStop));
    trace.clear();
    g_srvmod = 0;
    shmSt[TAV_CID_STRG_CONF].shmNum = 1;
    EXPECT_EQ(stop().message, "ServiceMode is non-Service FAILED");
    EXPECT_TRUE(trace.has(kFailure, "fsFreeInstance() Failure!!", kStop));
    shmSt[TAV_CID_STRG_CONF].shmId = segment;
}

TEST_F(ThreadClass, AThreadThatCannotBeMadeIsAFailedStart)
{
    noThread();
    const NoStackForThreads hopeless;
    const Reply reply = start();
    EXPECT_EQ(reply.rc, CMPI_RC_ERR_FAILED);
    EXPECT_EQ(reply.message, "strgCreateThread() FAILED");
    EXPECT_THAT(trace.textsOf(kStart), ElementsAre("_IN_", "getClassName() Failure!!", "_OUT_"));
    EXPECT_TRUE(trace.has(kFailure, "getClassName() Failure!!", kStart));
    EXPECT_EQ(*strgGetThreadID(), 0u);
}

// With the monitoring thread itself, which works until its sleep; that lasts until it is stopped.
class StartedThread : public ThreadClass {
protected:
    StartedThread()
    {
        noThread();
        sim::skipSleeps(false);
        sim::holdSleeps(true);
    }
    ~StartedThread() override { sim::holdSleeps(false); }

    void startAndSleep()
    {
        const Reply reply = start();
        ASSERT_EQ(reply.rc, CMPI_RC_OK) << reply.message;
        EXPECT_EQ(reply.message, "");
        EXPECT_TRUE(reply.data.empty());
        ASSERT_TRUE(sim::awaitSleep(1, 60));
    }
    std::string running() { return get().instances.at(0).properties.at(0).value.toString(); }
};

TEST_F(StartedThread, StartsStopsAndStartsAgain)
{
    for (int i = 0; i < 2; ++i) {
        trace.clear();
        startAndSleep();
        EXPECT_THAT(trace.textsOf(kStart), ElementsAre("_IN_", "_OUT_"));
        EXPECT_EQ(running(), "1");
        EXPECT_EQ(start().message, "Thread is Already WakeUp FAILED");
        EXPECT_EQ(sim::sleepers(), 1u) << "undisturbed";
        EXPECT_EQ(stop().rc, CMPI_RC_OK);
        EXPECT_EQ(running(), "0");
        EXPECT_EQ(gst_first, 0);
        EXPECT_EQ(sim::sleepers(), 0u);
        sim::holdSleeps(true);
    }
}

TEST_F(StartedThread, OneThatDiedReadsNotRunningAndCanBeStartedAgain)
{
    startAndSleep();
    pthread_cancel(threadNow(strgGetThreadID())); // not by the provider
    for (int i = 0; running() == "1" && i < 3000; ++i) {
        usleep(10000);
    }
    EXPECT_EQ(running(), "0");
    EXPECT_EQ(*strgGetThreadID(), 0u);
    EXPECT_NE(instSt[TAV_CID_STRG_CONF].datAdr, nullptr) << "the store stays";
    sim::holdSleeps(true);
    startAndSleep();
    EXPECT_EQ(running(), "1");
    EXPECT_EQ(stop().rc, CMPI_RC_OK);
}

TEST_F(StartedThread, StartThatWaitedForAStopRebuildsTheStore)
{
    startAndSleep();
    EXPECT_EQ(stop().rc, CMPI_RC_OK);
    sim::holdSleeps(true);
    startAndSleep();
    EXPECT_EQ(gst_first, 2);
    EXPECT_NE(instSt[TAV_CID_STRG_CONF].datAdr, nullptr);
    EXPECT_EQ(stop().rc, CMPI_RC_OK);
}

TEST_F(StartedThread, StartFailsIfTheStoreCannotBeRebuilt)
{
    gst_first = 0;
    machine.remove("/opt/qlm/tavkit_sa/work"); // where the segments' keys come from
    const Reply reply = start();
    EXPECT_EQ(reply.message, "strgCreateThread() FAILED");
    EXPECT_EQ(*strgGetThreadID(), 0u);
    EXPECT_TRUE(trace.textsOf("strgCreateThread").empty());
}

TEST_F(StartedThread, StartsAndStopsAtTheSameMomentLeaveOneThreadOrNone)
{
    std::vector<std::thread> requests;
    for (int i = 0; i < 4; ++i) {
        requests.emplace_back([this, i] {
            for (int n = 0; n < 5; ++n) {
                const Reply reply = i % 2 == 0 ? start() : stop();
                EXPECT_TRUE(reply.rc == CMPI_RC_OK || reply.message == "Thread is Already WakeUp FAILED" ||
                            reply.message == "Thread is Already Pause FAILED")
                    << reply.message;
            }
        });
    }
    for (std::thread &request : requests) {
        request.join();
    }
    stop();
    EXPECT_EQ(running(), "0");
    EXPECT_EQ(instSt[TAV_CID_STRG_CONF].datAdr, nullptr);
}

TEST_F(ThreadClass, NoFailureOfTheBrokerLeavesAnythingBehind)
{
    bool struck = true;
    for (unsigned nth = 1; struck; ++nth) {
        ASSERT_LT(nth, 100u);
        broker.failCall("*", nth);
        const Reply reply = get();
        struck = broker.failureStruck();
        broker.failCall("*", 0);
        ASSERT_TRUE(broker.accounting().clean()) << nth << testing::PrintToString(broker.accounting().notes);
        EXPECT_TRUE(struck || reply.rc == CMPI_RC_OK);
    }
}

} // namespace

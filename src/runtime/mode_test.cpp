// SPDX-License-Identifier: Apache-2.0
#include "runtime/mode.h"

#include "broker/broker.h"
#include "runtime/trace.h"
#include "support/trace_recorder.h"

#include <atomic>
#include <cerrno>
#include <gmock/gmock.h>
#include <thread>

using namespace tavstrg;

using testing::ElementsAre;

// The system's answer, but where a test has it know no thread. The program is linked so that calls come here.
static bool threadsAreUnknown = false;
extern "C" int __real_pthread_kill(pthread_t thread, int signal);
extern "C" int __wrap_pthread_kill(pthread_t thread, int signal)
{
    return threadsAreUnknown ? ESRCH : __real_pthread_kill(thread, signal);
}

namespace {

class ServiceMode : public testing::Test {
protected:
    ServiceMode() { g_srvmod = -1; }
    ~ServiceMode() override { g_srvmod = -1; }

    // Asks within a separate request.
    int ask(broker::Broker &broker)
    {
        const broker::Request request(broker, "TAV_StorageHardDisk");
        const CInfo cInfo = {broker.handle(), request.context()};
        return getServiceMode(&cInfo);
    }
    std::vector<std::string> texts() { return trace.textsOf("getServiceMode"); }
    std::vector<std::string> lines() { return trace.linesOf("getServiceMode"); }
    TraceRecorder trace;
};

broker::Options installed(std::optional<bool> serviceMode)
{
    broker::Options options;
    options.serviceMode = serviceMode;
    return options;
}

TEST_F(ServiceMode, WithoutCallInformationItIsZero)
{
    EXPECT_EQ(getServiceMode(nullptr), 0);
    EXPECT_TRUE(trace.has(kFailure, "_OUT_ Param(cInfo) Failure!!", "getServiceMode"));
}

TEST_F(ServiceMode, IsAskedOfTheBrokerOnce)
{
    for (const int mode : {0, 1}) {
        g_srvmod = -1;
        trace.clear();
        broker::Broker broker(installed(mode == 1));
        EXPECT_EQ(ask(broker), mode);
        EXPECT_EQ(ask(broker), mode);
        EXPECT_EQ(broker.calls("getInstance"), 1u);
        EXPECT_TRUE(broker.accounting().clean()) << testing::PrintToString(broker.accounting().notes);
        const std::string number = std::to_string(mode);
        EXPECT_THAT(texts(), ElementsAre("_IN_", "GetInstance(TAV_GeneralInformation)",
                                         "_OUT_ InstalledServiceMode=[" + number + "]", "_IN_",
                                         "_OUT_ srvmod=[" + number + "]"));
    }
}

TEST_F(ServiceMode, AFailureIsZeroAndIsAskedAgain)
{
    const struct {
        const char *slot;
        const char *text;
    } cases[] = {
        {"newObjectPath", "_OUT_ CMNewObjectPath() Failure!!"},
        {"getInstance", "_OUT_ CBGetInstance() Failure!!"},
        {"getProperty", "_OUT_ CMGetProperty() Failure!!"},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.slot);
        g_srvmod = -1;
        broker::Broker broker(installed(true));
        broker.failCall(c.slot, 1);
        EXPECT_EQ(ask(broker), 0);
        EXPECT_TRUE(trace.has(kFailure, c.text, "getServiceMode"));
        EXPECT_EQ(g_srvmod, -1);
        EXPECT_EQ(ask(broker), 1);
        EXPECT_TRUE(broker.accounting().clean()) << testing::PrintToString(broker.accounting().notes);
    }
}

TEST_F(ServiceMode, MissingGeneralInformationIsAFailure)
{
    broker::Broker broker(installed(std::nullopt));
    EXPECT_EQ(ask(broker), 0);
    EXPECT_TRUE(trace.has(kFailure, "_OUT_ CBGetInstance() Failure!!", "getServiceMode"));
    EXPECT_EQ(g_srvmod, -1);
}

TEST_F(ServiceMode, ACleanupAsksNothingOfTheBroker)
{
    broker::Broker broker(installed(true));
    const CInfo cleanup = {broker.handle(), nullptr};
    EXPECT_EQ(getServiceMode(&cleanup), 0);
    EXPECT_THAT(texts(), ElementsAre("_IN_", "GetInstance(TAV_GeneralInformation)", "_OUT_ CBGetInstance() Failure!!"));
    EXPECT_EQ(broker.calls("*"), 0u);
    EXPECT_EQ(g_srvmod, -1);
    EXPECT_EQ(ask(broker), 1);
    EXPECT_EQ(getServiceMode(&cleanup), 1) << "what is known needs no broker";
}

TEST_F(ServiceMode, NullIsZeroAndKept)
{
    broker::Broker broker;
    broker::Value null;
    null.type = CMPI_boolean;
    broker.addInstance({"root/TAVKIT/AS", "TAV_GeneralInformation", {}, {{"InstalledServiceMode", null}}});
    EXPECT_EQ(ask(broker), 0);
    EXPECT_EQ(g_srvmod, 0);
    EXPECT_EQ(lines().back(), "0 _OUT_ InstalledServiceMode=[0]");
    EXPECT_EQ(ask(broker), 0);
    EXPECT_EQ(lines().back(), "0 _OUT_ srvmod=[0]") << "the broker is not asked again";
    EXPECT_TRUE(broker.accounting().clean()) << testing::PrintToString(broker.accounting().notes);
}

TEST_F(ServiceMode, AValueThatIsNoTruthValueIsAFailure)
{
    const struct {
        broker::Value value;
        int mode;
        const char *text; // beginning of the exit
    } cases[] = {
        {broker::Value::number(7, CMPI_uint8), 0, "3 _OUT_ getValue() Failure!! boolean=[7]"},
        {broker::Value::number(2, CMPI_uint16), 0, "3 _OUT_ getValue() Failure!! boolean=[2]"},
        {broker::Value::text("1"), 0, "3 _OUT_ getValue() Failure!! boolean=["},
        {broker::Value::number(1, CMPI_uint8), 1, "0 _OUT_ InstalledServiceMode=[1]"},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.text);
        g_srvmod = -1;
        broker::Broker broker;
        broker.addInstance({"root/TAVKIT/AS", "TAV_GeneralInformation", {}, {{"InstalledServiceMode", c.value}}});
        EXPECT_EQ(ask(broker), c.mode);
        EXPECT_EQ(g_srvmod, c.mode == 1 ? 1 : -1);
        EXPECT_THAT(lines().back(), testing::StartsWith(c.text));
        EXPECT_TRUE(broker.accounting().clean()) << testing::PrintToString(broker.accounting().notes);
    }
}

TEST_F(ServiceMode, AnObjectWithoutAHandleIsAFailure)
{
    for (const char *const slot : {"newObjectPath", "getInstance"}) {
        g_srvmod = -1;
        broker::Broker broker(installed(true));
        broker.failCall(slot, 1, broker::Broker::kNullHandle);
        EXPECT_EQ(ask(broker), 0) << slot;
        EXPECT_TRUE(broker.failureStruck());
        EXPECT_TRUE(broker.accounting().clean()) << testing::PrintToString(broker.accounting().notes);
    }
    EXPECT_TRUE(trace.has(kFailure, "_OUT_ CMNewObjectPath() Failure!!", "getServiceMode"));
    EXPECT_TRUE(trace.has(kFailure, "_OUT_ CBGetInstance() Failure!!", "getServiceMode"));
}

TEST_F(ServiceMode, MayBeAskedByManyRequestsAtOnce)
{
    broker::Broker broker(installed(true));
    std::vector<std::thread> requests;
    std::atomic<int> sum{0};
    for (int i = 0; i < 4; ++i) {
        requests.emplace_back([&] { sum += ask(broker); });
    }
    for (std::thread &request : requests) {
        request.join();
    }
    EXPECT_EQ(sum, 4);
}

TEST(ThreadStatus, IsZeroWithoutAThread)
{
    TraceRecorder trace;
    pthread_t none = 0;
    EXPECT_EQ(getThreadSts(&none), 0);
    EXPECT_THAT(trace.textsOf("getThreadSts"), ElementsAre("_IN_ tid=[0]", "_OUT_ thread is non"));
    EXPECT_EQ(getThreadSts(nullptr), 0);
}

TEST(ThreadStatus, IsOneWhileTheThreadRuns)
{
    TraceRecorder trace;
    pthread_t self = pthread_self();
    EXPECT_EQ(getThreadSts(&self), 1);
    EXPECT_EQ(self, pthread_self());
    EXPECT_THAT(trace.textsOf("getThreadSts"),
                ElementsAre("_IN_ tid=[" + std::to_string(static_cast<int>(self)) + "]", "_OUT_ thread is Running"));
}

// A thread that ends on its own, with its mark; its identifier.
pthread_t endedThread()
{
    pthread_t thread = 0;
    const auto body = [](void *) -> void * {
        threadEnds();
        return nullptr;
    };
    EXPECT_EQ(pthread_create(&thread, nullptr, body, nullptr), 0);
    return thread;
}

TEST(ThreadStatus, OfAThreadThatEndedIsZeroAndClearsTheIdentifier)
{
    TraceRecorder trace;
    pthread_t thread = endedThread();
    const std::string id = std::to_string(static_cast<int>(thread));
    while (getThreadSts(&thread) == 1) { // until the mark is there
        trace.clear();
    }
    EXPECT_EQ(thread, 0U);
    EXPECT_EQ(getThreadSts(&thread), 0);
    EXPECT_THAT(trace.textsOf("getThreadSts"),
                ElementsAre("_IN_ tid=[" + id + "]", "_OUT_ thread is NotRun", "_IN_ tid=[0]", "_OUT_ thread is non"));
}

TEST(ThreadStatus, IsZeroForAnUnknownThreadAndClearsTheIdentifier)
{
    TraceRecorder trace;
    pthread_t thread = pthread_self();
    threadsAreUnknown = true;
    EXPECT_EQ(getThreadSts(&thread), 0);
    threadsAreUnknown = false;
    EXPECT_EQ(thread, 0U);
    EXPECT_EQ(trace.textsOf("getThreadSts").back(), "_OUT_ thread is NotRun");
}

TEST(ThreadStatus, DoesNotJoinAThreadThatIsBeingJoined)
{
    pthread_t thread = endedThread();
    const pthread_t claimed = claimThread(&thread);
    EXPECT_EQ(claimed, thread);
    EXPECT_EQ(pthread_join(claimed, nullptr), 0);
    threadsAreUnknown = true;
    EXPECT_EQ(getThreadSts(&thread), 1);
    threadsAreUnknown = false;
    threadJoined(&thread);
    EXPECT_EQ(threadNow(&thread), 0U);
    pthread_t self = pthread_self();
    threadEnds(); // leaves the mark of this thread
    threadStarted(&thread, self);
    EXPECT_EQ(claimThread(&thread), self);
    threadJoined(&thread);
    threadStarted(&thread, self); // another thread may get the identifier, but not the mark
    EXPECT_EQ(getThreadSts(&thread), 1);
    threadJoined(&thread);
    EXPECT_EQ(getThreadSts(&self), 1);
    pthread_t none = 0;
    EXPECT_EQ(claimThread(&none), 0U);
    threadJoined(&none);
}

} // namespace

// SPDX-License-Identifier: Apache-2.0
#include "runtime/trace.h"

#include "support/fake_agent.h"

#include <dlfcn.h>
#include <gmock/gmock.h>
#include <pthread.h>
#include <syslog.h>
#include <thread>

using namespace tavstrg;

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

const char kTrace[] = "/opt/qlm/tavkit_sa/lib/libtavlog.so";
const char kAlert[] = "/opt/qlm/tavkit_sa/lib/libtavalert.so";

void traceOne()
{
    const TraceScope scope;
    TRACE(kDetail, "_IN_ size=[%d]", 7);
}

class AgentLibraries : public testing::Test {
protected:
    AgentLibraries() { FakeAgent::systemLog().clear(); }
    std::string logged(const char *text) const { return std::to_string(LOG_ERR) + "|" + text; }
    FakeAgent agent;
};

TEST_F(AgentLibraries, AreOpenedLazilyFromTheLibDirectoryUnderTheFixedRoot)
{
    EXPECT_EQ(InitProcess("tavstrg.log"), 0);
    EXPECT_THAT(agent.opened, ElementsAre(kTrace, kAlert));
    EXPECT_THAT(agent.openModes, ElementsAre(RTLD_LAZY, RTLD_LAZY));
    EXPECT_STREQ(g_logfnm, "tavstrg.log");
    EXPECT_THAT(FakeAgent::systemLog(), IsEmpty());
}

TEST_F(AgentLibraries, AreNotOpenedAgainOnceEverythingIsThere)
{
    EXPECT_EQ(InitProcess("tavstrg.log"), 0);
    EXPECT_EQ(InitProcess("tavstrg.log"), 0);
    EXPECT_EQ(agent.opened.size(), 2u);
}

TEST_F(AgentLibraries, TheFileNameIsTakenEveryTime)
{
    EXPECT_EQ(InitProcess("first.log"), 0);
    EXPECT_EQ(InitProcess("tavstrg.log"), 0);
    EXPECT_STREQ(g_logfnm, "tavstrg.log");
    EXPECT_EQ(InitProcess("tavstrg.log.a.long.name"), 0);
    EXPECT_STREQ(g_logfnm, "tavstrg.log.a.l");
    EXPECT_EQ(InitProcess("tavstrg.log"), 0);
    EXPECT_STREQ(g_logfnm, "tavstrg.log");
}

TEST_F(AgentLibraries, EachFailureIsLoggedOnceAndEndsTheLoading)
{
    const struct {
        const char *missing;
        const char *text;
        size_t opened;
    } cases[] = {
        {"libtavlog.so", "dlopen(libtavlog.so) Failure!!", 1},
        {"SetFilePath", "dlsym(libtavlog.so SetFilePath()) Failure!!", 1},
        {"TraceLog", "dlsym(libtavlog.so TraceLog()) Failure!!", 1},
        {"libtavalert.so", "dlopen(libtavalert.so) Failure!!", 2},
        {"SendIndication", "dlsym(libtavalert.so SendIndication()) Failure!!", 2},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.missing);
        FakeAgent broken;
        FakeAgent::systemLog().clear();
        broken.missing = {c.missing};
        EXPECT_EQ(InitProcess("tavstrg.log"), -1);
        EXPECT_THAT(FakeAgent::systemLog(), ElementsAre(logged(c.text)));
        EXPECT_EQ(broken.opened.size(), c.opened);
        // Libraries that were loaded stay; the next attempt continues from there and takes no second reference.
        broken.missing = {};
        EXPECT_EQ(InitProcess("tavstrg.log"), 0);
        EXPECT_EQ(broken.opened.size(), c.missing[0] == 'l' ? 3u : 2u);
    }
}

TEST_F(AgentLibraries, TracingWorksWhenOnlyTheAlertLibraryIsMissing)
{
    agent.missing = {"libtavalert.so"};
    EXPECT_EQ(InitProcess("tavstrg.log"), -1);
    traceOne();
    EXPECT_THAT(agent.paths, ElementsAre("tavstrg.log"));
    EXPECT_THAT(agent.lines, ElementsAre("0||traceOne|_IN_ size=[7]"));
    EXPECT_EQ(g_Func.alert.SendIndication.load(), nullptr);
}

TEST_F(AgentLibraries, NothingIsTracedWhileTheyAreNotLoaded)
{
    traceOne();
    EXPECT_THAT(agent.lines, IsEmpty());
    EXPECT_THAT(agent.paths, IsEmpty());
}

TEST_F(AgentLibraries, EitherTraceFunctionIsCalledWhenOnlyItIsThere)
{
    ASSERT_EQ(InitProcess("tavstrg.log"), 0);
    g_Func.trace.SetFilePath = nullptr;
    traceOne();
    EXPECT_THAT(agent.calls, ElementsAre("TraceLog"));
    FinishProcess();
    ASSERT_EQ(InitProcess("tavstrg.log"), 0);
    g_Func.trace.TraceLog = nullptr;
    agent.calls.clear();
    traceOne();
    EXPECT_THAT(agent.calls, ElementsAre("SetFilePath"));
}

TEST_F(AgentLibraries, EachLineIsPrecededByTheNameOfItsFile)
{
    ASSERT_EQ(InitProcess("tavstrg.log"), 0);
    traceOne();
    traceOne();
    EXPECT_THAT(agent.calls, ElementsAre("SetFilePath", "TraceLog", "SetFilePath", "TraceLog"));
}

// A helper without a scope of its own, as an engine is: it traces for the function that called it.
void traceForTheCaller()
{
    TRACE(kDetail, "helper");
}

void traceWithinAScope()
{
    const TraceScope scope("outer");
    traceForTheCaller();
    traceOne();
    traceForTheCaller();
}

TEST_F(AgentLibraries, ALineBearsTheNameOfTheInnermostScope)
{
    EXPECT_EQ(InitProcess("tavstrg.log"), 0);
    traceWithinAScope();
    EXPECT_THAT(agent.lines, ElementsAre("0||outer|helper", "0||traceOne|_IN_ size=[7]", "0||outer|helper"));
    EXPECT_STREQ(TraceScope::current(), "") << "the scope that was left is still named";
}

TEST_F(AgentLibraries, EachThreadHasScopesOfItsOwn)
{
    EXPECT_EQ(InitProcess("tavstrg.log"), 0);
    const TraceScope scope("here");
    std::thread([] {
        EXPECT_STREQ(TraceScope::current(), "");
        const TraceScope there("there");
        traceForTheCaller();
    }).join();
    traceForTheCaller();
    EXPECT_THAT(agent.lines, ElementsAre("0||there|helper", "0||here|helper"));
}

// What a thread that is cancelled inside nested scopes traces while it unwinds.
struct TracedAtTheEnd {
    ~TracedAtTheEnd() { traceForTheCaller(); }
};

void cancelledHere()
{
    const TraceScope scope("inner");
    const TracedAtTheEnd last;
    pthread_cancel(pthread_self());
    pthread_testcancel();
}

void *cancelledThread(void *)
{
    const TraceScope scope("outer");
    const TracedAtTheEnd last;
    cancelledHere();
    return nullptr;
}

TEST_F(AgentLibraries, ScopesEndInTheirOrderWhenTheThreadIsCancelled)
{
    EXPECT_EQ(InitProcess("tavstrg.log"), 0);
    pthread_t thread{};
    ASSERT_EQ(pthread_create(&thread, nullptr, cancelledThread, nullptr), 0);
    void *result = nullptr;
    pthread_join(thread, &result);
    EXPECT_EQ(result, PTHREAD_CANCELED);
    EXPECT_THAT(agent.lines, ElementsAre("0||inner|helper", "0||outer|helper"));
}

TEST_F(AgentLibraries, FinishUnloadsTheAlertLibraryFirst)
{
    ASSERT_EQ(InitProcess("tavstrg.log"), 0);
    FinishProcess();
    EXPECT_THAT(agent.closed, ElementsAre("libtavalert.so", "libtavlog.so"));
    EXPECT_EQ(g_Func.trace.handle.load(), nullptr);
    EXPECT_EQ(g_Func.trace.SetFilePath.load(), nullptr);
    EXPECT_EQ(g_Func.trace.TraceLog.load(), nullptr);
    EXPECT_EQ(g_Func.alert.handle.load(), nullptr);
    EXPECT_EQ(g_Func.alert.SendIndication.load(), nullptr);
    FinishProcess();
    EXPECT_EQ(agent.closed.size(), 2u) << "nothing is left to close";
    EXPECT_EQ(InitProcess("tavstrg.log"), 0);
    EXPECT_EQ(agent.opened.size(), 4u);
}

TEST_F(AgentLibraries, OneThatCannotBeClosedStaysAsItWas)
{
    ASSERT_EQ(InitProcess("tavstrg.log"), 0);
    agent.stuck = {"libtavlog.so"};
    FinishProcess();
    EXPECT_THAT(agent.closed, ElementsAre("libtavalert.so"));
    EXPECT_NE(g_Func.trace.handle.load(), nullptr);
    traceOne();
    EXPECT_EQ(agent.lines.size(), 1u);
    agent.stuck = {"libtavalert.so"};
    ASSERT_EQ(InitProcess("tavstrg.log"), 0);
    FinishProcess();
    EXPECT_EQ(g_Func.trace.handle.load(), nullptr);
    EXPECT_NE(g_Func.alert.handle.load(), nullptr);
    EXPECT_NE(g_Func.alert.SendIndication.load(), nullptr);
}

std::atomic<bool> insideLibrary{false};
std::atomic<bool> mayLeaveLibrary{false};

void setFilePathSlowly(const char *)
{
    insideLibrary = true;
    while (!mayLeaveLibrary) {
        std::this_thread::yield();
    }
}

TEST_F(AgentLibraries, TheTraceLibraryIsUnloadedOnlyWhenNoThreadIsInsideIt)
{
    EXPECT_EQ(InitProcess("tavstrg.log"), 0);
    g_Func.trace.SetFilePath = setFilePathSlowly;
    std::thread tracing(traceOne);
    while (!insideLibrary) {
        std::this_thread::yield();
    }
    std::thread finishing(FinishProcess);
    while (g_Func.trace.TraceLog != nullptr) { // it has begun
        std::this_thread::yield();
    }
    EXPECT_NE(g_Func.trace.handle, nullptr) << "a thread is inside";
    mayLeaveLibrary = true;
    tracing.join();
    finishing.join();
    EXPECT_EQ(g_Func.trace.handle, nullptr);
    EXPECT_THAT(agent.closed, ElementsAre("libtavalert.so", "libtavlog.so"));
}

TEST_F(AgentLibraries, OneThatAThreadDoesNotLeaveStaysLoaded)
{
    EXPECT_EQ(InitProcess("tavstrg.log"), 0);
    const auto setFilePath = g_Func.trace.SetFilePath.load();
    const auto sendIndication = g_Func.alert.SendIndication.load();
    {
        const LibraryCall tracing(g_tracing);
        const LibraryCall alerting(g_alerting);
        FinishProcess();
    }
    EXPECT_THAT(agent.closed, IsEmpty());
    EXPECT_EQ(g_Func.trace.SetFilePath, setFilePath) << "and is called again";
    EXPECT_EQ(g_Func.alert.SendIndication, sendIndication);
    FinishProcess();
    EXPECT_THAT(agent.closed, ElementsAre("libtavalert.so", "libtavlog.so"));
}

TEST_F(AgentLibraries, AreLoadedOnceBesideConcurrentRequests)
{
    ASSERT_EQ(InitProcess("tavstrg.log"), 0);
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([i] {
            for (int n = 0; n < 200; ++n) {
                if (i % 2 == 0) {
                    EXPECT_EQ(InitProcess("tavstrg.log"), 0);
                } else {
                    traceOne();
                }
            }
        });
    }
    for (std::thread &thread : threads) {
        thread.join();
    }
    EXPECT_EQ(agent.opened.size(), 2u);
    EXPECT_EQ(agent.lines.size(), 400u);
}

TEST_F(AgentLibraries, LoadLibraryRefusesWhatIsNoName)
{
    EXPECT_EQ(LoadLibrary(nullptr), nullptr);
    EXPECT_EQ(LoadLibrary(std::string(8192, 'x').c_str()), nullptr);
    EXPECT_THAT(agent.opened, IsEmpty());
    EXPECT_EQ(LoadLibrary("libother.so"), nullptr);
    EXPECT_THAT(agent.opened, ElementsAre("/opt/qlm/tavkit_sa/lib/libother.so"));
}

TEST_F(AgentLibraries, GetProcAddressRefusesNull)
{
    void *const library = LoadLibrary("libtavlog.so");
    ASSERT_NE(library, nullptr);
    EXPECT_EQ(GetProcAddress(nullptr, "TraceLog"), nullptr);
    EXPECT_EQ(GetProcAddress(library, nullptr), nullptr);
    EXPECT_EQ(GetProcAddress(library, "Other"), nullptr);
    EXPECT_NE(GetProcAddress(library, "TraceLog"), nullptr);
}

} // namespace

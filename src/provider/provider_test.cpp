// SPDX-License-Identifier: Apache-2.0
#include "provider/provider.h"

#include "disks/current/current.h"
#include "runtime/trace.h"
#include "support/fake_agent.h"
#include "support/held_call.h"
#include "support/options_fixture.h"
#include "support/store_fixture.h"

#include <gmock/gmock.h>
#include <thread>
#include <unistd.h>

using namespace tavstrg;

using broker::NamedValue;
using broker::Reply;
using broker::Request;
using broker::Value;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

CMPIInstanceMI *makeInstanceMI(const broker::Broker &broker)
{
    CMPIStatus rc = {CMPI_RC_OK, nullptr};
    return TAVStorageProvider_Create_InstanceMI(broker.handle(), broker.emptyContext(), &rc);
}

CMPIMethodMI *makeMethodMI(const broker::Broker &broker)
{
    CMPIStatus rc = {CMPI_RC_OK, nullptr};
    return TAVStorageProvider_Create_MethodMI(broker.handle(), broker.emptyContext(), &rc);
}

class EntryPoints : public ServedStore {
protected:
    EntryPoints() : instanceMI(makeInstanceMI(broker)), methodMI(makeMethodMI(broker)) { trace.clear(); }

    Reply get(const char *className, const std::vector<NamedValue> &keys = {})
    {
        const Request request(broker, className, keys);
        return request.reply(
            instanceMI->ft->getInstance(instanceMI, request.context(), request.result(), request.path(), nullptr));
    }
    Reply enumerate(const char *className)
    {
        const Request request(broker, className);
        return request.reply(instanceMI->ft->enumerateInstances(instanceMI, request.context(), request.result(),
                                                                request.path(), nullptr));
    }
    Reply invoke(const char *className, const char *method, const std::vector<NamedValue> &args = {})
    {
        Request request(broker, className);
        request.setIn(args);
        return request.reply(methodMI->ft->invokeMethod(methodMI, request.context(), request.result(), request.path(),
                                                        method, request.in(), request.out()));
    }
    Reply names(const char *className)
    {
        const Request request(broker, className);
        return request.reply(
            instanceMI->ft->enumerateInstanceNames(instanceMI, request.context(), request.result(), request.path()));
    }
    void noThread() { *strgGetThreadID() = 0; }

    CMPIInstanceMI *instanceMI;
    CMPIMethodMI *methodMI;
    static constexpr const char *kGet = "TAV_StorageProviderGetInstance";
    static constexpr const char *kEnum = "TAV_StorageProviderEnumInstances";
    static constexpr const char *kInvoke = "TAV_StorageProviderInvokeMethod";
};

// A thread that can be cancelled at any moment, in place of the monitoring thread.
void *pauseForEver(void *)
{
    for (;;) {
        pause();
    }
}

// Class name, names of the handlers of GetInstance and EnumInstances, as they are traced before the call.
const struct {
    const char *className;
    const char *get;
    const char *enumerate;
    const char *enumHandler; // the function that is really called
} kClassTable[] = {
    {"TAV_StorageThread", "TAV_STRGThreadGetInstance", "TAV_STRGThreadGetInstance", "TAV_STRGThreadGetInstance"},
    {"TAV_StorageConfig", "TAV_STRGConfigGetInstance", "TAV_STRGConfigGetInstance", "TAV_STRGConfigGetInstance"},
    {"TAV_StorageTotalNumber", "TAV_STRGTotalNumGetInstance", "TAV_STRGTotalNumGetInstance",
     "TAV_STRGTotalNumGetInstance"},
    {"TAV_StorageController", "TAV_STRGCtrlGetInstance", "TAV_STRGCtrlEnumInstances", "TAV_STRGCtrlEnumInstances"},
    {"TAV_StorageSCSIDevice", "TAV_STRGScsiGetInstance", "TAV_STRGScsiEnumInstances", "TAV_STRGScsiEnumInstances"},
    {"TAV_StorageIDEDevice", "TAV_STRGIdeGetInstance", "TAV_STRGIdeEnumInstances", "TAV_STRGIdeEnumInstances"},
    {"TAV_StorageHardDisk", "TAV_STRGHddGetInstance", "TAV_STRGHddEnumInstances", "TAV_STRGHddEnumInstances"},
    {"TAV_StorageCDROM", "TAV_STRGCdromGetInstance", "TAV_STRGCdromEnumInstances", "TAV_STRGCdromEnumInstances"},
    {"TAV_StorageTape", "TAV_STRGTapeGetInstance", "TAV_STRGTapeEnumInstances", "TAV_STRGTapeEnumInstances"},
    {"TAV_StorageOpticalMemory", "TAV_STRGOptMemGetInstance", "TAV_STRGOptMemEnumInstances",
     "TAV_STRGOptMemEnumInstances"},
    {"TAV_StorageMisc", "TAV_STRGMiscGetInstance", "TAV_STRGMiscEnumInstances", "TAV_STRGMiscEnumInstances"},
    {"TAV_StorageLifeSpan", "TAV_STRGLifeSpanGetInstance", "TAV_StorageLifeSpanEnumInstances",
     "TAV_STRGLifeSpanEnumInstances"},
};

TEST_F(EntryPoints, TheTablesHaveTheirNamesVersionsAndSlots)
{
    EXPECT_EQ(instanceMI->hdl, nullptr);
    EXPECT_EQ(instanceMI->ft->ftVersion, 200);
    EXPECT_EQ(instanceMI->ft->miVersion, 200);
    EXPECT_STREQ(instanceMI->ft->miName, "instanceTAVStorageProvider");
    EXPECT_EQ(instanceMI->ft->cleanup, TAV_StorageProviderCleanup);
    EXPECT_EQ(instanceMI->ft->enumerateInstanceNames, TAV_StorageProviderEnumInstanceNames);
    EXPECT_EQ(instanceMI->ft->enumerateInstances, TAV_StorageProviderEnumInstances);
    EXPECT_EQ(instanceMI->ft->getInstance, TAV_StorageProviderGetInstance);
    EXPECT_EQ(instanceMI->ft->createInstance, TAV_StorageProviderCreateInstance);
    EXPECT_EQ(instanceMI->ft->modifyInstance, TAV_StorageProviderModifyInstance);
    EXPECT_EQ(instanceMI->ft->deleteInstance, TAV_StorageProviderDeleteInstance);
    EXPECT_EQ(instanceMI->ft->execQuery, TAV_StorageProviderExecQuery);
    EXPECT_EQ(methodMI->hdl, nullptr);
    EXPECT_EQ(methodMI->ft->ftVersion, 200);
    EXPECT_EQ(methodMI->ft->miVersion, 200);
    EXPECT_STREQ(methodMI->ft->miName, "methodTAVStorageProvider");
    EXPECT_EQ(methodMI->ft->cleanup, TAV_StorageProviderMethodCleanup);
    EXPECT_EQ(methodMI->ft->invokeMethod, TAV_StorageProviderInvokeMethod);
}

TEST_F(EntryPoints, FactoriesInitialiseTheProcessAndKeepTheStatus)
{
    CMPIStatus rc = {CMPI_RC_ERR_ACCESS_DENIED, nullptr};
    EXPECT_EQ(TAVStorageProvider_Create_InstanceMI(broker.handle(), broker.emptyContext(), &rc), instanceMI);
    EXPECT_EQ(TAVStorageProvider_Create_MethodMI(broker.handle(), broker.emptyContext(), &rc), methodMI);
    EXPECT_EQ(rc.rc, CMPI_RC_ERR_ACCESS_DENIED);
    EXPECT_EQ(TAVStorageProvider_Create_MethodMI(broker.handle(), broker.emptyContext(), nullptr), methodMI);
    EXPECT_THAT(trace.linesOf("TAV_StorageProviderInitProcess"),
                ElementsAre("0 pthread_mutex_init(instMutexSt)", "0 pthread_mutex_init(instMutexSt)",
                            "0 pthread_mutex_init(instMutexSt)"));
    EXPECT_STREQ(g_logfnm, "tavstrg.log");
}

TEST_F(EntryPoints, AFactoryLeavesAStoreLockThatIsHeldAlone)
{
    ASSERT_EQ(pthread_mutex_trylock(&instMutexSt.mutex), 0);
    makeInstanceMI(broker);
    EXPECT_EQ(TAV_StorageProviderInitProcess(), 0);
    EXPECT_EQ(pthread_mutex_trylock(&instMutexSt.mutex), EBUSY);
    pthread_mutex_unlock(&instMutexSt.mutex);
}

TEST_F(EntryPoints, FactoriesMayRunWhileRequestsDo)
{
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([this, i] {
            for (int n = 0; n < 50; ++n) {
                if (i % 2 == 0) {
                    EXPECT_EQ(makeInstanceMI(broker), instanceMI);
                } else {
                    EXPECT_EQ(get("TAV_StorageThread").rc, CMPI_RC_OK);
                }
            }
        });
    }
    for (std::thread &thread : threads) {
        thread.join();
    }
}

TEST_F(EntryPoints, EachClassReachesItsHandlers)
{
    for (const auto &row : kClassTable) {
        SCOPED_TRACE(row.className);
        trace.clear();
        get(row.className, {{"Index", Value::text("1")}});
        EXPECT_TRUE(trace.has(kFailure, std::string("->") + row.get + "()", kGet));
        EXPECT_EQ(trace.textsOf(row.get).front(), "_IN_");
        trace.clear();
        enumerate(row.className);
        EXPECT_TRUE(trace.has(kFailure, std::string("->") + row.enumerate + "()", kEnum));
        ASSERT_FALSE(trace.textsOf(row.enumHandler).empty());
        EXPECT_EQ(trace.textsOf(row.enumHandler).front(), "_IN_");
    }
}

TEST_F(EntryPoints, AGetInstanceIsTracedFromStartToEnd)
{
    put<StrgHddRec>(TAV_CID_STRG_HDD, {{1, 0, 1, 0, "", 0, 0, 0, 0, 0, 0}, {2, 0, 2, 0, "", 0, 0, 0, 0, 0, 0}});
    const Reply reply = get("TAV_StorageHardDisk", {{"Index", Value::text("2")}});
    ASSERT_EQ(reply.rc, CMPI_RC_OK) << reply.message;
    ASSERT_EQ(reply.instances.size(), 1u);
    EXPECT_EQ(reply.instances[0].find("InterfaceTypeIndex")->toString(), "2");
    const std::vector<TraceRecord> lines = trace.records();
    EXPECT_THAT(trace.linesOf(kGet), ElementsAre("3 ##start##", "3 ->TAV_STRGHddGetInstance()",
                                                 testing::StartsWith("0 memfree(0x"), "3 ## end ##"));
    // The tracing functions in order; consecutive lines of one function count once.
    std::vector<std::string> functions;
    for (const TraceRecord &line : lines) {
        const bool known = line.function.starts_with("TAV_") || line.function == "strgInitProvider" ||
                           line.function == "getClassName" || line.function == "getNameSpace" ||
                           line.function == "getKeyIndex" || line.function == "strgGetInstance";
        if (known && (functions.empty() || functions.back() != line.function)) {
            functions.push_back(line.function);
        }
    }
    EXPECT_THAT(functions, ElementsAre(kGet, "strgInitProvider", "getClassName", kGet, "TAV_STRGHddGetInstance",
                                       "getKeyIndex", "TAV_STRGHddGetInstance", "strgGetInstance",
                                       "TAV_STRGHddGetInstance", "TAV_STRGHddSetPropInst", "getNameSpace",
                                       "TAV_STRGHddSetPropInst", "TAV_STRGHddGetInstance", kGet));
}

TEST_F(EntryPoints, AnEnumInstancesIsTracedFromStartToEnd)
{
    put<StrgLifeRec>(TAV_CID_STRG_LIFE, {{1, 1, 5, 0}, {2, 2, -1, 0}});
    const Reply reply = enumerate("TAV_StorageLifeSpan");
    EXPECT_EQ(reply.instances.size(), 2u);
    EXPECT_TRUE(reply.done);
    EXPECT_THAT(trace.linesOf(kEnum), ElementsAre("3 ##start##", "3 ->TAV_StorageLifeSpanEnumInstances()",
                                                  testing::StartsWith("0 memfree(0x"), "3 ## end ##"));
}

TEST_F(EntryPoints, AnInvokeMethodIsTracedFromStartToEnd)
{
    const Reply reply = invoke("TAV_StorageConfig", "SetMonitorCycle", {{"MonitorCycle", Value::text("120")}});
    EXPECT_EQ(reply.rc, CMPI_RC_OK) << reply.message;
    EXPECT_TRUE(reply.done);
    EXPECT_THAT(reply.data, IsEmpty());
    EXPECT_THAT(trace.linesOf(kInvoke),
                ElementsAre("3 ##start##", "3 ->TAV_STRGConfigInvokeMethod()", testing::StartsWith("0 memfree(0x"),
                            "0 CMReturnDone()", "3 ## end ##"));
    EXPECT_EQ(gst_SleepSec, 120);
}

TEST_F(EntryPoints, EnumeratingASingletonGivesWhatGetInstanceGives)
{
    for (const char *const className : {"TAV_StorageConfig", "TAV_StorageTotalNumber", "TAV_StorageThread"}) {
        const Reply one = get(className);
        const Reply all = enumerate(className);
        ASSERT_EQ(one.instances.size(), 1u) << className;
        ASSERT_EQ(all.instances.size(), 1u) << className;
        const auto &left = one.instances[0].properties;
        const auto &right = all.instances[0].properties;
        ASSERT_EQ(left.size(), right.size());
        for (size_t i = 0; i < left.size(); ++i) {
            EXPECT_EQ(left[i].name, right[i].name);
            EXPECT_EQ(left[i].value.toString(), right[i].value.toString());
        }
    }
}

TEST_F(EntryPoints, ServiceModeWithoutAThreadAnswersTheThreadClassAlone)
{
    noThread();
    for (const auto &row : kClassTable) {
        SCOPED_TRACE(row.className);
        const bool thread = std::string(row.className) == "TAV_StorageThread";
        const Reply replies[] = {get(row.className), enumerate(row.className), invoke(row.className, "Any")};
        for (const Reply &reply : replies) {
            if (thread) {
                EXPECT_EQ(reply.rc, CMPI_RC_OK) << reply.message;
            } else {
                EXPECT_EQ(reply.rc, CMPI_RC_ERR_FAILED);
                EXPECT_EQ(reply.message, "ServiceMode But NonThread Failure!!");
                EXPECT_THAT(reply.instances, IsEmpty());
            }
        }
    }
    for (const char *const function : {kGet, kEnum, kInvoke}) {
        EXPECT_TRUE(trace.has(kFailure, "ServiceMode And NonThread Failure!!", function));
    }
    EXPECT_EQ(get("TAV_StorageNothing").message, "ServiceMode But NonThread Failure!!")
        << "the gate comes before the name";
}

TEST_F(EntryPoints, TheClassNameIsComparedExactly)
{
    for (const char *const name : {"tav_storageharddisk", "TAV_StorageHarddisk", "TAV_StorageHardDisk ", "TAV_Storage",
                                   "TAV_StorageHardDisks"}) {
        SCOPED_TRACE(name);
        trace.clear();
        const std::string traced = std::string("ClassName Failure!![") + name + "]";
        for (const Reply &reply : {get(name), enumerate(name), invoke(name, "SetMonitorCycle")}) {
            EXPECT_EQ(reply.rc, CMPI_RC_ERR_FAILED);
            EXPECT_EQ(reply.message, "Generic Failure!!");
        }
        for (const char *const function : {kGet, kEnum, kInvoke}) {
            EXPECT_TRUE(trace.has(kFailure, traced, function));
        }
    }
}

TEST_F(EntryPoints, AMethodOfAClassWithoutMethodsFailsAndClosesTheResult)
{
    for (const auto &row : kClassTable) {
        SCOPED_TRACE(row.className);
        if (row.className == std::string("TAV_StorageThread") || row.className == std::string("TAV_StorageConfig")) {
            continue;
        }
        const Reply reply = invoke(row.className, "SetMonitorCycle");
        EXPECT_EQ(reply.rc, CMPI_RC_ERR_FAILED);
        EXPECT_EQ(reply.message, "Generic Failure!!");
        EXPECT_TRUE(reply.done);
        EXPECT_THAT(reply.data, IsEmpty());
        EXPECT_TRUE(trace.has(kFailure, std::string("ClassName Failure!![") + row.className + "]", kInvoke));
    }
}

TEST_F(EntryPoints, UnknownMethodFailsExceptInTheThreadClass)
{
    for (const char *const method : {"Other", "startMonitoringThread", "SetMonitorCycle", ""}) {
        SCOPED_TRACE(method);
        trace.clear();
        const Reply reply = invoke("TAV_StorageThread", method);
        EXPECT_EQ(reply.rc, CMPI_RC_OK);
        EXPECT_EQ(reply.message, "Generic Failure!!");
        ASSERT_EQ(reply.data.size(), 1u);
        EXPECT_EQ(reply.data[0].type, CMPI_uint32);
        EXPECT_EQ(reply.data[0].toString(), "1");
        EXPECT_TRUE(reply.done);
        EXPECT_THAT(trace.linesOf(kInvoke),
                    ElementsAre("3 ##start##", std::string("3 MethodName Failure!![") + method + "]",
                                "0 CMReturnData()", testing::StartsWith("0 memfree(0x"), "0 CMReturnDone()",
                                "3 ## end ##"));
    }
    for (const char *const method : {"Other", "setmonitorcycle", "StartMonitoringThread"}) {
        SCOPED_TRACE(method);
        const Reply reply = invoke("TAV_StorageConfig", method);
        EXPECT_EQ(reply.rc, CMPI_RC_ERR_FAILED);
        EXPECT_EQ(reply.message, "Generic Failure!!");
        EXPECT_TRUE(reply.done);
        EXPECT_THAT(reply.data, IsEmpty());
        EXPECT_TRUE(trace.has(kFailure, std::string("MethodName Failure!![") + method + "]", kInvoke));
    }
    const Request request(broker, "TAV_StorageThread");
    const CMPIStatus status = methodMI->ft->invokeMethod(methodMI, request.context(), request.result(), request.path(),
                                                         nullptr, request.in(), request.out());
    EXPECT_EQ(status.rc, CMPI_RC_OK);
}

TEST_F(EntryPoints, AThreadMethodsOutcomeIsItsReturnValue)
{
    const Reply start = invoke("TAV_StorageThread", "StartMonitoringThread");
    EXPECT_EQ(start.rc, CMPI_RC_OK);
    EXPECT_EQ(start.message, "Thread is Already WakeUp FAILED");
    ASSERT_EQ(start.data.size(), 1u);
    EXPECT_EQ(start.data[0].type, CMPI_uint32);
    EXPECT_EQ(start.data[0].toString(), "1");
    EXPECT_TRUE(trace.has(kFailure, "->TAV_STRGThreadStartInvokeMethod()", kInvoke));
    noThread();
    const Reply stop = invoke("TAV_StorageThread", "StopMonitoringThread");
    EXPECT_EQ(stop.rc, CMPI_RC_OK);
    EXPECT_EQ(stop.message, "Thread is Already Pause FAILED");
    ASSERT_EQ(stop.data.size(), 1u);
    EXPECT_EQ(stop.data[0].toString(), "1");
    EXPECT_TRUE(stop.done);
    EXPECT_TRUE(trace.has(kFailure, "->TAV_STRGThreadStopInvokeMethod()", kInvoke));
}

TEST_F(EntryPoints, AStoreThatCannotBeBuiltFailsEveryRequest)
{
    gst_first = 1; // another thread's initialisation that takes too long
    for (const Reply &reply :
         {get("TAV_StorageThread"), enumerate("TAV_StorageConfig"), invoke("TAV_StorageThread", "Any")}) {
        EXPECT_EQ(reply.rc, CMPI_RC_ERR_FAILED);
        EXPECT_EQ(reply.message, "strgInitProvider() Failure!!");
        EXPECT_THAT(reply.data, IsEmpty());
    }
    EXPECT_THAT(trace.linesOf(kGet),
                ElementsAre("3 ##start##", "3 strgInitProvider() Failure!!", "0 memfree already NULL", "3 ## end ##"));
    EXPECT_THAT(trace.linesOf(kInvoke), ElementsAre("3 ##start##", "3 strgInitProvider() Failure!!",
                                                    "0 memfree already NULL", "0 CMReturnDone()", "3 ## end ##"));
    EXPECT_TRUE(trace.has(kFailure, "strgInitProvider() Failure!!", kEnum));
    gst_first = 2;
}

TEST_F(EntryPoints, StoreLockHeldForThreeSecondsFailsRequests)
{
    put<StrgHddRec>(TAV_CID_STRG_HDD, {{1, 0, 1, 0, "", 0, 0, 0, 0, 0, 0}});
    g_srvmod = 0;
    noThread();
    ASSERT_EQ(pthread_mutex_trylock(&instMutexSt.mutex), 0);
    const double before = sim::sleptSeconds();
    for (const char *const className : {"TAV_StorageHardDisk", "TAV_StorageConfig"}) {
        const Reply reply = get(className, {{"Index", Value::text("1")}});
        EXPECT_EQ(reply.rc, CMPI_RC_ERR_FAILED) << className;
        EXPECT_EQ(reply.message, "strgGetInstance() FAILED") << className;
    }
    EXPECT_NEAR(sim::sleptSeconds() - before, 2 * 3.0, 0.01);
    pthread_mutex_unlock(&instMutexSt.mutex);
    EXPECT_TRUE(trace.has(kFailure, "strgGetInstance() Failure!!", "TAV_STRGHddGetInstance"));
    EXPECT_TRUE(trace.has(kFailure, "strgGetInstance() Failure!!", "TAV_STRGConfigGetInstance"));
}

TEST_F(EntryPoints, AClassNameThatCannotBeReadFailsTheRequest)
{
    for (int kind = 0; kind < 3; ++kind) {
        broker.failCall("getClassName", 1);
        const Reply reply = kind == 0   ? get("TAV_StorageThread")
                            : kind == 1 ? enumerate("TAV_StorageThread")
                                        : invoke("TAV_StorageThread", "StopMonitoringThread");
        EXPECT_EQ(reply.rc, CMPI_RC_ERR_FAILED);
        EXPECT_EQ(reply.message, "getClassName() Failure!!");
        EXPECT_EQ(reply.done, kind == 2);
    }
    for (const char *const function : {kGet, kEnum, kInvoke}) {
        EXPECT_TRUE(trace.has(kFailure, "getClassName() Failure!!", function));
        EXPECT_TRUE(trace.has(kDetail, "memfree already NULL", function));
    }
}

TEST_F(EntryPoints, OperationsThatAreNotSupportedTouchNothing)
{
    gst_first = 0;
    const Request request(broker, "TAV_StorageHardDisk");
    const CMPIContext *const ctx = request.context();
    const CMPIResult *const rslt = request.result();
    const CMPIObjectPath *const cop = request.path();
    const struct {
        const char *function;
        CMPIStatus status;
    } calls[] = {
        {"TAV_StorageProviderEnumInstanceNames", instanceMI->ft->enumerateInstanceNames(instanceMI, ctx, rslt, cop)},
        {"TAV_StorageProviderCreateInstance", instanceMI->ft->createInstance(instanceMI, ctx, rslt, cop, nullptr)},
        {"TAV_StorageProviderModifyInstance",
         instanceMI->ft->modifyInstance(instanceMI, ctx, rslt, cop, nullptr, nullptr)},
        {"TAV_StorageProviderSetInstance",
         TAV_StorageProviderSetInstance(instanceMI, ctx, rslt, cop, nullptr, nullptr)},
        {"TAV_StorageProviderDeleteInstance", instanceMI->ft->deleteInstance(instanceMI, ctx, rslt, cop)},
        {"TAV_StorageProviderExecQuery", instanceMI->ft->execQuery(instanceMI, ctx, rslt, cop, "select", "WQL")},
    };
    for (const auto &call : calls) {
        SCOPED_TRACE(call.function);
        const Reply reply = request.reply(call.status);
        EXPECT_EQ(reply.rc, CMPI_RC_ERR_NOT_SUPPORTED);
        EXPECT_EQ(reply.message, "NOT_SUPPORTED");
        EXPECT_FALSE(reply.done);
        EXPECT_THAT(trace.linesOf(call.function),
                    ElementsAre("3 ##start##", "0 CMSetStatusWithChars() - NOT_SUPPORTED", "3 ## end ##"));
    }
    EXPECT_EQ(gst_first, 0);
    EXPECT_THAT(trace.textsOf("strgInitProvider"), IsEmpty());
    gst_first = 2;
}

TEST_F(EntryPoints, NoFailureOfTheBrokerLeavesAnythingBehind)
{
    put<StrgHddRec>(TAV_CID_STRG_HDD, {{1, 0, 1, 0, "", 0, 0, 0, 0, 0, 0}, {2, 0, 2, 0, "", 0, 0, 0, 0, 0, 0}});
    for (int kind = 0; kind < 4; ++kind) {
        bool struck = true;
        for (unsigned nth = 1; struck; ++nth) {
            ASSERT_LT(nth, 100u);
            broker.failCall("*", nth);
            const Reply reply =
                kind == 0   ? get("TAV_StorageHardDisk", {{"Index", Value::text("2")}})
                : kind == 1 ? enumerate("TAV_StorageHardDisk")
                : kind == 2 ? invoke("TAV_StorageThread", "StartMonitoringThread")
                            : invoke("TAV_StorageConfig", "SetMonitorCycle", {{"MonitorCycle", Value::text("120")}});
            struck = broker.failureStruck();
            broker.failCall("*", 0);
            ASSERT_TRUE(broker.accounting().clean())
                << kind << " " << nth << testing::PrintToString(broker.accounting().notes);
            EXPECT_TRUE(struck || reply.rc == CMPI_RC_OK);
        }
    }
}

// The service mode is asked of the broker in a request, so that a gate that fails to learn it lets the request pass.
TEST_F(EntryPoints, AServiceModeThatIsUnknownCountsAsNone)
{
    noThread();
    g_srvmod = -1;
    broker.setServiceMode(std::nullopt);
    EXPECT_EQ(get("TAV_StorageConfig").rc, CMPI_RC_OK);
    broker.setServiceMode(true);
    EXPECT_EQ(get("TAV_StorageConfig").message, "ServiceMode But NonThread Failure!!");
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

// What a class gets for every kind of request: answers and trace lines, without its name and addresses.
class UnknownClass : public EntryPoints {
protected:
    std::vector<std::string> all(const std::string &className)
    {
        trace.clear();
        const char *const name = className.c_str();
        std::vector<std::string> told;
        for (const Reply &reply : {get(name, {{"DiskID", Value::text("naa.5000c500a1b2c3d4")}}), enumerate(name),
                                   names(name), invoke(name, "Any")}) {
            told.push_back(std::to_string(reply.rc) + " " + reply.message + (reply.done ? " done" : "") + " " +
                           std::to_string(reply.instances.size()));
        }
        for (const char *function : {kGet, kEnum, kInvoke, "TAV_StorageProviderEnumInstanceNames", "strgInitProvider",
                                     "getServiceMode", "getThreadSts", "getClassName"}) {
            for (std::string line : trace.linesOf(function)) {
                if (const size_t at = line.find(className); at != std::string::npos) {
                    line.replace(at, className.size(), "CLASS");
                }
                if (const size_t at = line.find("0x"); at != std::string::npos) {
                    line.resize(at);
                }
                told.push_back(line);
            }
        }
        return told;
    }
};

TEST_F(UnknownClass, IsTheClassOfEveryDiskWithoutItsLine)
{
    const std::vector<std::string> expected = all("TAV_StorageNothing");
    EXPECT_EQ(expected[0], "1 Generic Failure!! 0");
    EXPECT_EQ(expected[2], "7 NOT_SUPPORTED 0");
    EXPECT_GT(expected.size(), 10U);
    EXPECT_EQ(all("TAV_StorageDisk"), expected);
    machine.write(OptionsInForce::kFile, "clean-text\n# every-disk\n");
    EXPECT_EQ(all("TAV_StorageDisk"), expected);
    noThread();
    EXPECT_EQ(all("TAV_StorageDisk"), all("TAV_StorageNothing"));
}

TEST_F(UnknownClass, IsNotTheClassOfEveryDiskWithItsLine)
{
    for (const char *line : {"every-disk\n", "all\n"}) {
        machine.write(OptionsInForce::kFile, line);
        trace.clear();
        EXPECT_EQ(enumerate("TAV_StorageDisk").message, "NotFound Data");
        EXPECT_TRUE(trace.has(kFailure, "->TAV_STRGDiskEnumInstances()", kEnum));
        EXPECT_EQ(names("TAV_StorageDisk").message, "NotFound Data");
        EXPECT_EQ(names("TAV_StorageHardDisk").message, "NOT_SUPPORTED");
        EXPECT_EQ(get("TAV_StorageDisk").message, "getKeyText() FAILED");
        EXPECT_EQ(get("TAV_StorageDisk", {{"DiskID", Value::number(1)}}).message, "getKeyText() FAILED");
        EXPECT_EQ(invoke("TAV_StorageDisk", "Any").message, "Generic Failure!!");
        disks::forgetCurrentDisks();
    }
    machine.remove(OptionsInForce::kFile);
    EXPECT_EQ(enumerate("TAV_StorageDisk").message, "Generic Failure!!");
}

TEST_F(UnknownClass, NeedsNoInventoryWithItsLine)
{
    machine.write(OptionsInForce::kFile, "every-disk\n");
    for (const int state : {0, 1}) { // no store was built; another thread has been building one for too long
        gst_first = state;
        EXPECT_EQ(enumerate("TAV_StorageDisk").message, "NotFound Data");
        EXPECT_EQ(names("TAV_StorageDisk").message, "NotFound Data");
        EXPECT_EQ(invoke("TAV_StorageDisk", "Any").message, "Generic Failure!!");
        EXPECT_EQ(gst_first, state);
    }
    EXPECT_EQ(get("TAV_StorageThread").message, "strgInitProvider() Failure!!");
    noThread();
    EXPECT_EQ(enumerate("TAV_StorageDisk").message, "ServiceMode But NonThread Failure!!");
    gst_first = 2;
    disks::forgetCurrentDisks();
}

} // namespace

// SPDX-License-Identifier: Apache-2.0
#include "provider/provider.h"

#include "runtime/trace.h"
#include "support/entry_points.h"

#include <gmock/gmock.h>
#include <thread>

using namespace tavstrg;

using broker::NamedValue;
using broker::Reply;
using broker::Request;
using broker::Value;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

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

} // namespace

// SPDX-License-Identifier: Apache-2.0
#include "classes/classes.h"
#include "runtime/trace.h"
#include "support/store_fixture.h"

#include <atomic>
#include <chrono>
#include <gmock/gmock.h>
#include <thread>

using namespace tavstrg;

using broker::NamedValue;
using broker::Reply;
using broker::Request;
using broker::Value;
using testing::ElementsAre;

namespace {

class ConfigMethods : public ServedStore {
protected:
    Reply invoke(const char *method, const std::vector<NamedValue> &args)
    {
        Request request(broker, "TAV_StorageConfig");
        request.setIn(args);
        const CInfo cInfo = {broker.handle(), request.context()};
        return request.reply(
            TAV_STRGConfigInvokeMethod(&cInfo, request.result(), request.path(), method, request.in(), request.out()));
    }
    Reply setCycle(const Value &value) { return invoke("SetMonitorCycle", {{"MonitorCycle", value}}); }
    Reply setSmart(const Value &value) { return invoke("SetHardDiskSmartMode", {{"HardDiskSmartMode", value}}); }
    const StrgConfRec &record() const { return *static_cast<const StrgConfRec *>(instSt[TAV_CID_STRG_CONF].datAdr); }
    std::string shown(const char *property)
    {
        Request request(broker, "TAV_StorageConfig");
        const CInfo cInfo = {broker.handle(), request.context()};
        const Reply reply = request.reply(TAV_STRGConfigGetInstance(&cInfo, request.result(), request.path(), nullptr));
        return reply.instances.empty() ? reply.message : reply.instances[0].find(property)->toString();
    }
    static constexpr const char *kFunction = "TAV_STRGConfigInvokeMethod";
};

TEST_F(ConfigMethods, TheCycleHasALowestAndAHighestValue)
{
    const struct {
        Value value;
        const char *message; // "" for success
    } cases[] = {
        {Value::text("10"), ""},
        {Value::text("3600"), ""},
        {Value::number(10, CMPI_uint16), ""},
        {Value::number(3600, CMPI_uint16), ""},
        {Value::text("9"), "SetValue(MonitorCycle) FAILED"},
        {Value::text("3601"), "SetValue(MonitorCycle) FAILED"},
        {Value::number(9, CMPI_uint16), "SetValue(MonitorCycle) FAILED"},
        {Value::number(3601, CMPI_uint16), "SetValue(MonitorCycle) FAILED"},
        {Value::text("0"), "SetValue(MonitorCycle) FAILED"},
        {Value::text("-5"), "SetValue(MonitorCycle) FAILED"},
        {Value::text("65596"), "SetValue(MonitorCycle) FAILED"}, // 60 in its low 16 bits
        {Value::text("x"), "SetValue(MonitorCycle) FAILED"},
        {Value::number(0, CMPI_uint16), "getArgToInt(MonitorCycle) FAILED"},
        {Value::text("-1"), "getArgToInt(MonitorCycle) FAILED"},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.value.toString());
        put<StrgConfRec>(TAV_CID_STRG_CONF, {{60, 10, 3600, 60, 1, 0}});
        const Reply reply = setCycle(c.value);
        const bool good = c.message[0] == '\0';
        EXPECT_EQ(reply.rc, good ? CMPI_RC_OK : CMPI_RC_ERR_FAILED);
        EXPECT_EQ(reply.message, c.message);
        EXPECT_EQ(shown("MonitorCycle"), good ? c.value.toString() : "60");
        EXPECT_TRUE(reply.data.empty());
        EXPECT_FALSE(reply.done) << "the result is the dispatcher's to close";
    }
}

TEST_F(ConfigMethods, TheSmartModeIsZeroOrOne)
{
    const struct {
        Value value;
        const char *message;
    } cases[] = {
        {Value::text("1"), ""},
        {Value::text("0"), ""},
        {Value::number(1, CMPI_sint16), ""},
        {Value::text("2"), "SetValue(HDDSmartMode) FAILED"},
        {Value::number(2, CMPI_uint16), "SetValue(HDDSmartMode) FAILED"},
        {Value::number(0, CMPI_uint16), "getArgToInt(HDDSmartMode) FAILED"},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.value.toString());
        put<StrgConfRec>(TAV_CID_STRG_CONF, {{60, 10, 3600, 60, 7, 0}});
        const Reply reply = setSmart(c.value);
        const bool good = c.message[0] == '\0';
        EXPECT_EQ(reply.rc, good ? CMPI_RC_OK : CMPI_RC_ERR_FAILED);
        EXPECT_EQ(reply.message, c.message);
        EXPECT_EQ(shown("HardDiskSmartMode"), good ? c.value.toString() : "7");
    }
}

TEST_F(ConfigMethods, AMissingArgumentIsUnreadable)
{
    EXPECT_EQ(invoke("SetMonitorCycle", {}).message, "getArgToInt(MonitorCycle) FAILED");
    EXPECT_TRUE(trace.has(kFailure, "getArgToInt(MonitorCycle) Failure!!", kFunction));
    EXPECT_EQ(invoke("SetHardDiskSmartMode", {{"HDDSmartMode", Value::text("1")}}).message,
              "getArgToInt(HDDSmartMode) FAILED");
    EXPECT_TRUE(trace.has(kFailure, "getArgToInt(HDDSmartMode) Failure!!", kFunction));
}

TEST_F(ConfigMethods, ANewCycleIsShownPublishedSavedAndUsed)
{
    ASSERT_EQ(setCycle(Value::text("120")).rc, CMPI_RC_OK);
    EXPECT_THAT(trace.textsOf(kFunction),
                ElementsAre("_IN_", "strgGetInstance(TAV_CID_STRG_CONF)", "getArgToInt(MonitorCycle)",
                            "datconf->MonitorCycle=[60] dt.value.uint16=[120]", "datconf->MonitorCycle=[120]",
                            "strgSetInstance()", "_OUT_"));
    EXPECT_EQ(shown("MonitorCycle"), "120");
    EXPECT_EQ(shown("MonitorCycleMin"), "10");
    EXPECT_EQ(shown("MonitorCycleMax"), "3600");
    EXPECT_EQ(shown("MonitorCycleDefault"), "60");
    EXPECT_EQ(gst_SleepSec, 120);
    EXPECT_TRUE(machine.exists(kSavedStateFile));
    // No other process writes, so this one reads its new value back from the segment.
    const_cast<StrgConfRec &>(record()).MonitorCycle = 60;
    EXPECT_EQ(shown("MonitorCycle"), "120");
}

TEST_F(ConfigMethods, ANewSmartModeIsTracedAndUsed)
{
    ASSERT_EQ(setSmart(Value::text("0")).rc, CMPI_RC_OK);
    EXPECT_THAT(trace.textsOf(kFunction),
                ElementsAre("_IN_", "strgGetInstance(TAV_CID_STRG_CONF)", "getArgToInt(HDDSmartMode)",
                            "datconf->HardDiskSmartMode=[1] dt.value.sint16=[0]", "datconf->HardDiskSmartMode=[0]",
                            "strgSetInstance()", "_OUT_"));
    EXPECT_EQ(gst_SmartMode, 0);
}

TEST_F(ConfigMethods, TheRangeIsFixedWhateverTheRecordSays)
{
    put<StrgConfRec>(TAV_CID_STRG_CONF, {{60, 100, 200, 60, 1, 0}});
    EXPECT_EQ(setCycle(Value::text("99")).rc, CMPI_RC_OK);
    EXPECT_EQ(setCycle(Value::text("201")).rc, CMPI_RC_OK);
}

TEST_F(ConfigMethods, RefusedValuesAreTraced)
{
    setCycle(Value::text("9"));
    EXPECT_TRUE(trace.has(kFailure, "MonitorCycle Failure!! value=[9]", kFunction));
    setSmart(Value::text("2"));
    EXPECT_TRUE(trace.has(kFailure, "HDDSmartMode Failure!! value=[2]", kFunction));
}

TEST_F(ConfigMethods, AChangeThatCannotBePublishedStaysInThisProcess)
{
    machine.remove("/opt/qlm/tavkit_sa/data");
    const Reply reply = setCycle(Value::text("120"));
    EXPECT_EQ(reply.rc, CMPI_RC_ERR_FAILED);
    EXPECT_EQ(reply.message, "Storage-Update FAILED");
    EXPECT_TRUE(trace.has(kFailure, "strgSetInstance() Failure!!", kFunction));
    EXPECT_EQ(record().MonitorCycle, 120);
}

TEST_F(ConfigMethods, AStoreThatCannotBeReadFails)
{
    pthread_mutex_lock(&shmSt[TAV_CID_STRG_CONF].mutex.mutex);
    const Reply reply = setCycle(Value::text("120"));
    pthread_mutex_unlock(&shmSt[TAV_CID_STRG_CONF].mutex.mutex);
    EXPECT_EQ(reply.rc, CMPI_RC_ERR_FAILED);
    EXPECT_EQ(reply.message, "strgGetInstance() FAILED");
    EXPECT_TRUE(trace.has(kFailure, "strgGetInstance() Failure!!", kFunction));
}

TEST_F(ConfigMethods, WithoutCallInformationThereIsNoMessage)
{
    const CMPIStatus status =
        TAV_STRGConfigInvokeMethod(nullptr, nullptr, nullptr, "SetMonitorCycle", nullptr, nullptr);
    EXPECT_EQ(status.rc, CMPI_RC_ERR_FAILED);
    EXPECT_EQ(status.msg, nullptr);
    EXPECT_THAT(trace.linesOf(kFunction), ElementsAre("0 _IN_", "3 param(cInfo) Failure!!", "0 _OUT_"));
}

TEST_F(ConfigMethods, AChangeIsNotLostToARequestThatReadsMeanwhile)
{
    sim::skipSleeps(false); // both need the same segment lock
    std::atomic<bool> done{false};
    std::thread reader([&] {
        while (!done) {
            shown("MonitorCycle");
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
    });
    std::vector<std::string> lost;
    for (int cycle = 100; cycle < 115; ++cycle) {
        const Reply reply = setCycle(Value::text(std::to_string(cycle)));
        if (!reply.ok() || shown("MonitorCycle") != std::to_string(cycle)) {
            lost.push_back(std::to_string(cycle) + " " + reply.message);
        }
    }
    done = true;
    reader.join();
    EXPECT_THAT(lost, testing::IsEmpty());
}

TEST_F(ConfigMethods, NoFailureOfTheBrokerLeavesAnythingBehind)
{
    bool struck = true;
    for (unsigned nth = 1; struck; ++nth) {
        ASSERT_LT(nth, 100u);
        broker.failCall("*", nth);
        const Reply reply = setCycle(Value::text("120"));
        struck = broker.failureStruck();
        broker.failCall("*", 0);
        ASSERT_TRUE(broker.accounting().clean()) << nth << testing::PrintToString(broker.accounting().notes);
        EXPECT_EQ(struck, reply.rc != CMPI_RC_OK);
    }
}

} // namespace

// SPDX-License-Identifier: Apache-2.0
#include "runtime/request.h"

#include "broker/broker.h"
#include "runtime/memory.h"
#include "support/short_memory.h"
#include "support/trace_recorder.h"
#include "support/trace_watch.h"

#include <cerrno>
#include <gmock/gmock.h>

using namespace tavstrg;

using broker::Value;
using testing::ElementsAre;

namespace {

const char kClass[] = "TAV_StorageHardDisk";

class RequestHelpers : public testing::Test {
protected:
    ~RequestHelpers() override
    {
        EXPECT_TRUE(broker.accounting().clean()) << testing::PrintToString(broker.accounting().notes);
    }
    int keyOf(const Value &key)
    {
        const broker::Request request(broker, kClass, {{"Index", key}});
        return getKeyIndex(request.path());
    }
    int32_t argumentOf(const Value &argument)
    {
        broker::Request request(broker, kClass);
        request.setIn({{"MonitorCycle", argument}});
        return getArgToInt(request.in(), "MonitorCycle");
    }
    broker::Broker broker;
    TraceRecorder trace;
};

using GetKeyIndex = RequestHelpers;
using GetArgToInt = RequestHelpers;
using NamesOfAPath = RequestHelpers;
using GetEnumArray = RequestHelpers;

TEST_F(GetKeyIndex, TakesTextsAndNumbersAndKeepsTheLow16Bits)
{
    const struct {
        Value key;
        int index;
    } cases[] = {
        {Value::text("3"), 3},
        {Value::text("0"), 0},
        {Value::text("none"), 0},
        {Value::text(""), 0},
        {Value::text(" 12x"), 12},
        {Value::text("65535"), 65535},
        {Value::text("70000"), 4464},
        {Value::text("-1"), 65535},
        {Value::text("99999999999999999999999"), 65535},
        {Value::number(3), 3},
        {Value::number(3, CMPI_uint16), 3},
        {Value::number(70000), 4464},
        {Value::signedNumber(-1), 65535},
        {Value::number(1, CMPI_uint8), 1},
    };
    for (const auto &c : cases) {
        EXPECT_EQ(keyOf(c.key), c.index) << c.key.toString();
        EXPECT_EQ(trace.textsOf("getKeyIndex").back(), "_OUT_ ret=[" + std::to_string(c.index) + "]");
    }
}

TEST_F(GetKeyIndex, NumericZeroIsAFailure)
{
    EXPECT_EQ(keyOf(Value::number(0)), -1);
    EXPECT_TRUE(trace.has(kFailure, "_OUT_ CMGetKey() Failure!!", "getKeyIndex"));
}

TEST_F(GetKeyIndex, NullIsAFailureWhateverItsType)
{
    for (const CMPIType type : {CMPIType{CMPI_string}, CMPIType{CMPI_uint64}, CMPIType{CMPI_null}}) {
        trace.clear();
        Value null;
        null.type = type;
        EXPECT_EQ(keyOf(null), -1);
        EXPECT_TRUE(trace.has(kFailure, "_OUT_ CMGetKey() Failure!!", "getKeyIndex"));
    }
}

TEST_F(GetKeyIndex, AMissingKeyIsAFailure)
{
    const broker::Request request(broker, kClass, {{"Other", Value::text("3")}});
    EXPECT_EQ(getKeyIndex(request.path()), -1);
    EXPECT_TRUE(trace.has(kFailure, "_OUT_ CMGetKey() Failure!!", "getKeyIndex"));
}

TEST_F(GetKeyIndex, AMissingPathIsAFailure)
{
    EXPECT_EQ(getKeyIndex(nullptr), -1);
    EXPECT_THAT(trace.linesOf("getKeyIndex"), ElementsAre("0 _IN_ cop=[(nil)]", "3 _OUT_ Param(cop) Failure!!"));
}

TEST_F(GetArgToInt, TakesTextsWholeAndNumbersAs16Bits)
{
    const struct {
        Value argument;
        int32_t value;
    } cases[] = {
        {Value::number(120, CMPI_uint16), 120},
        {Value::text("120"), 120},
        {Value::text("-5"), -5},
        {Value::text("0"), 0},
        {Value::text("70000"), 70000},
        {Value::number(70000, CMPI_uint32), 4464},
        {Value::signedNumber(-1, CMPI_sint16), 65535},
    };
    for (const auto &c : cases) {
        EXPECT_EQ(argumentOf(c.argument), c.value) << c.argument.toString();
        EXPECT_EQ(trace.textsOf("getArgToInt").back(), "_OUT_ ret=[" + std::to_string(c.value) + "]");
    }
}

TEST_F(GetArgToInt, NumericZeroNullAndMissingArgumentsFail)
{
    Value null;
    null.type = CMPI_string;
    for (const Value &argument : {Value::number(0, CMPI_uint16), null}) {
        trace.clear();
        EXPECT_EQ(argumentOf(argument), -1);
        EXPECT_THAT(trace.textsOf("getArgToInt"), ElementsAre("_IN_", "_OUT_ CMGetArg() Failure!!"));
    }
    trace.clear();
    const broker::Request request(broker, kClass);
    EXPECT_EQ(getArgToInt(request.in(), "MonitorCycle"), -1);
    EXPECT_TRUE(trace.has(kFailure, "_OUT_ CMGetArg() Failure!!", "getArgToInt"));
    EXPECT_EQ(getArgToInt(nullptr, "MonitorCycle"), -1);
    EXPECT_TRUE(trace.has(kFailure, "_OUT_ Param(cin) Failure!!", "getArgToInt"));
}

TEST_F(NamesOfAPath, AreCopiesOfTheCallersOwn)
{
    const broker::Request request(broker, kClass, {}, "root/other");
    char *nameSpace = getNameSpace(request.path());
    char *className = getClassName(request.path());
    char *again = getClassName(request.path());
    EXPECT_STREQ(nameSpace, "root/other");
    EXPECT_STREQ(className, kClass);
    EXPECT_STREQ(again, kClass);
    EXPECT_NE(again, className);
    char text[128];
    std::snprintf(text, sizeof text, "_OUT_ namsp=[%p][root/other]", static_cast<void *>(nameSpace));
    EXPECT_TRUE(trace.has(kDetail, text, "getNameSpace"));
    std::snprintf(text, sizeof text, "_OUT_ className=[%p][TAV_StorageHardDisk]", static_cast<void *>(className));
    EXPECT_TRUE(trace.has(kDetail, text, "getClassName"));
    std::snprintf(text, sizeof text, "_IN_ cop=[%p]", static_cast<void *>(request.path()));
    EXPECT_TRUE(trace.has(kDetail, text, "getClassName"));
    memfree(nameSpace);
    memfree(className);
    memfree(again);
}

TEST_F(NamesOfAPath, AreNullWithoutAPath)
{
    EXPECT_EQ(getNameSpace(nullptr), nullptr);
    EXPECT_TRUE(trace.has(kFailure, "_OUT_ Param(cop) Failure!!", "getNameSpace"));
    EXPECT_EQ(getClassName(nullptr), nullptr);
    EXPECT_TRUE(trace.has(kFailure, "_OUT_ Param(cop) Failure!!", "getClassName"));
}

TEST_F(NamesOfAPath, AreNullWhenTheBrokerHasNone)
{
    const broker::Request request(broker, kClass);
    broker.failCall("getNameSpace", 1);
    EXPECT_EQ(getNameSpace(request.path()), nullptr);
    EXPECT_TRUE(trace.has(kFailure, "_OUT_ CMGetNameSpace() Failure!!", "getNameSpace"));
    broker.failCall("getClassName", 1);
    EXPECT_EQ(getClassName(request.path()), nullptr);
    EXPECT_TRUE(trace.has(kFailure, "_OUT_ CMGetClassName() Failure!!", "getClassName"));
}

TEST_F(NamesOfAPath, AreNullWithoutAHandle)
{
    const broker::Request request(broker, kClass);
    broker.failCall("getNameSpace", 1, broker::Broker::kNullHandle);
    EXPECT_EQ(getNameSpace(request.path()), nullptr);
    EXPECT_TRUE(trace.has(kFailure, "_OUT_ CMGetNameSpace() Failure!!", "getNameSpace"));
    broker.failCall("getClassName", 1, broker::Broker::kNullHandle);
    EXPECT_EQ(getClassName(request.path()), nullptr);
    EXPECT_TRUE(trace.has(kFailure, "_OUT_ CMGetClassName() Failure!!", "getClassName"));
}

// A path whose names are ready made, so that nothing but the copy allocates.
struct ReadyPath {
    static CMPIString *name(const CMPIObjectPath *, CMPIStatus *rc)
    {
        static char characters[] = "name";
        static CMPIStringFT table = {};
        static CMPIString text = {characters, &table};
        table.release = [](CMPIString *) {
            ++released();
            return CMPIStatus{CMPI_RC_OK, nullptr};
        };
        *rc = {CMPI_RC_OK, nullptr};
        return &text;
    }
    static int &released()
    {
        static int count = 0;
        return count;
    }
    ReadyPath()
    {
        table.getNameSpace = name;
        table.getClassName = name;
        released() = 0;
    }
    CMPIObjectPathFT table = {};
    CMPIObjectPath path = {this, &table};
};

TEST_F(NamesOfAPath, AreNullWhenMemoryIsShort)
{
    SKIP_UNLESS_MEMORY_CAN_BE_SHORT();
    const std::string text = "_OUT_ CMGetCharsPtr() Failure!! errno=[" + std::to_string(ENOMEM) + "]";
    using Call = char *(*)(const CMPIObjectPath *);
    for (const Call call : {Call{getNameSpace}, Call{getClassName}}) {
        const ReadyPath ready;
        const TraceWatch told(kFailure, text.c_str());
        char *copy = nullptr;
        {
            const ShortMemory memory(1);
            copy = call(&ready.path);
            EXPECT_TRUE(memory.struck());
        }
        EXPECT_EQ(copy, nullptr);
        EXPECT_EQ(ReadyPath::released(), 1);
        EXPECT_EQ(told.seen(), 1);
    }
}

TEST_F(GetEnumArray, MissingArgumentsFailInTheirOrder)
{
    const broker::Request request(broker, kClass);
    const CInfo cInfo = {broker.handle(), request.context()};
    CMPIArray *array = nullptr;
    EXPECT_EQ(getEnumArray(nullptr, nullptr, nullptr, nullptr), -1);
    EXPECT_EQ(getEnumArray(&cInfo, nullptr, nullptr, nullptr), -1);
    EXPECT_EQ(getEnumArray(&cInfo, "n", nullptr, nullptr), -1);
    EXPECT_EQ(getEnumArray(&cInfo, "n", "c", nullptr), -1);
    EXPECT_THAT(trace.linesOf("getEnumArray"),
                ElementsAre("0 _IN_", "3 _OUT_ Param(cInfo) Failure!!", "0 _IN_", "3 _OUT_ Param(namespace) Failure!!",
                            "0 _IN_", "3 _OUT_ Param(classname) Failure!!", "0 _IN_",
                            "3 _OUT_ Param(cPArray) Failure!!"));
    EXPECT_EQ(array, nullptr);
}

TEST_F(GetEnumArray, GivesAnArrayOfTheCallersOwn)
{
    for (const bool strict : {false, true}) {
        broker::Options options;
        options.strictToArray = strict;
        broker::Broker host(options);
        {
            const broker::Request request(host, kClass);
            const CInfo cInfo = {host.handle(), request.context()};
            CMPIArray *array = nullptr;
            ASSERT_EQ(getEnumArray(&cInfo, "root/TAVKIT/AS", "TAV_GeneralInformation", &array), 1);
            ASSERT_NE(array, nullptr);
            EXPECT_EQ(array->ft->getSize(array, nullptr), 1u);
            EXPECT_TRUE(
                trace.has(kDetail, "namespace=[root/TAVKIT/AS] class=[TAV_GeneralInformation]", "getEnumArray"));
            char text[64];
            std::snprintf(text, sizeof text, "_OUT_ cnt=[1] *CMPIArray=[%p]", static_cast<void *>(array));
            EXPECT_TRUE(trace.has(kDetail, text, "getEnumArray"));
            array->ft->release(array);
        }
        EXPECT_TRUE(host.accounting().clean()) << testing::PrintToString(host.accounting().notes);
    }
}

TEST_F(GetEnumArray, EveryFailureReleasesWhatWasMade)
{
    constexpr int kFailed = CMPI_RC_ERR_FAILED;
    constexpr int kNull = CMPI_RC_OK; // no object although the status is OK
    constexpr int kNoHandle = broker::Broker::kNullHandle;
    const struct {
        const char *slot;
        const char *call; // as it is told
        std::vector<int> ways;
    } cases[] = {
        {"newObjectPath", "CMNewObjectPath", {kFailed, kNull, kNoHandle}},
        {"enumerateInstances", "CBEnumInstances", {kFailed, kNull, kNoHandle}},
        {"toArray", "CMToArray", {kFailed, kNull, kNoHandle}},
        {"getSize", "CMToArray", {kFailed}},
        {"clone", "CMClone", {kFailed, kNull, kNoHandle}},
    };
    for (const auto &c : cases) {
        for (const int way : c.ways) {
            SCOPED_TRACE(std::string(c.slot) + " " + std::to_string(way));
            trace.clear();
            const broker::Request request(broker, kClass);
            const CInfo cInfo = {broker.handle(), request.context()};
            CMPIArray *array = nullptr;
            broker.failCall(c.slot, 1, way);
            EXPECT_EQ(getEnumArray(&cInfo, "root/TAVKIT/AS", "TAV_GeneralInformation", &array), -1);
            EXPECT_TRUE(broker.failureStruck());
            EXPECT_EQ(trace.linesOf("getEnumArray").back(), std::string("3 _OUT_ ") + c.call + "() Failure!! status=[" +
                                                                std::to_string(way == kFailed ? 1 : 0) + "]");
            EXPECT_EQ(array, nullptr);
        }
    }
}

} // namespace

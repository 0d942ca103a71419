// SPDX-License-Identifier: Apache-2.0
#include "runtime/send_alert.h"

#include "support/alert_recorder.h"
#include "support/trace_recorder.h"

#include <cstdio>
#include <gmock/gmock.h>

using namespace tavstrg;

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

class SendIndication : public testing::Test {
protected:
    TraceRecorder trace;
    AlertRecorder alerts;
    const char *strings[3] = {"one", "two", nullptr};
};

TEST_F(SendIndication, HandsTheRecordOverByValueAndTracesEachField)
{
    EXPECT_EQ(TAVSendIndication("source", 0x800403E9, 2, 3, 2, strings), 0);
    EXPECT_THAT(alerts.records(), ElementsAre(AlertRecord{0, 3, "source", 0x800403E9, 2, 2, {"one", "two", "NULL"}}));
    char array[64];
    std::snprintf(array, sizeof array, "-> Info.strings=[%p]", static_cast<const void *>(strings));
    EXPECT_THAT(trace.texts(),
                ElementsAre("_IN_", "-> Info.version=[0]", "-> Info.method=[3]", "-> Info.sourceName=[source]",
                            "-> Info.eventID=[0x800403e9]", "-> Info.eventType=[2]", "-> Info.numOfStrings=[2]", array,
                            "_OUT_ ret=[0]"));
    EXPECT_FALSE(trace.has(kFailure, "_OUT_ ret=[0]"));
}

TEST_F(SendIndication, RefusesItsParametersInOrder)
{
    const struct {
        const char *source;
        int32_t type;
        int32_t method;
        int32_t count;
        const char *text;
    } cases[] = {
        {nullptr, -1, 0, -1, "_OUT_ Param(svnm) Failure!!"}, {"s", -1, 0, -1, "_OUT_ Param(evType) Failure!!"},
        {"s", 0, 0, -1, "_OUT_ Param(method) Failure!!"},    {"s", 0, 4, -1, "_OUT_ Param(method) Failure!!"},
        {"s", 0, -1, -1, "_OUT_ Param(method) Failure!!"},   {"s", 0, 1, -1, "_OUT_ Param(paramCnt) Failure!!"},
    };
    for (const auto &c : cases) {
        trace.clear();
        EXPECT_EQ(TAVSendIndication(c.source, 1, c.type, c.method, c.count, strings), -1);
        EXPECT_THAT(trace.texts(), ElementsAre("_IN_", c.text));
        EXPECT_TRUE(trace.has(kFailure, c.text, "TAVSendIndication"));
    }
    EXPECT_THAT(alerts.records(), IsEmpty());
}

TEST_F(SendIndication, TakesTheSmallestAndLargestOfEach)
{
    for (const int32_t method : {1, 2, 3}) {
        EXPECT_EQ(TAVSendIndication("", 0, 0, method, 0, nullptr), 0);
    }
    EXPECT_EQ(alerts.records().size(), 3U);
}

TEST_F(SendIndication, WhatTheLibraryRefusesOrIsNotThereForIsAFailure)
{
    for (const int answer : {1, -1, 7}) {
        alerts.answer = answer;
        EXPECT_EQ(TAVSendIndication("source", 1, 4, 3, 0, strings), -1);
    }
    g_Func.alert.SendIndication = nullptr;
    EXPECT_EQ(TAVSendIndication("source", 1, 4, 3, 0, strings), -1);
    EXPECT_EQ(trace.texts().back(), "_OUT_ ret=[-1]");
    EXPECT_EQ(alerts.records().size(), 3U);
}

} // namespace

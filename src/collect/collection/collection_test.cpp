// SPDX-License-Identifier: Apache-2.0
#include "collect/collection/collection.h"

#include "support/trace_recorder.h"

#include <gtest/gtest.h>

using namespace tavstrg;

namespace {

std::vector<std::string> freed(const TraceRecorder &trace)
{
    std::vector<std::string> functions;
    for (const TraceRecord &record : trace.records()) {
        if (record.text == "_IN_") {
            functions.push_back(record.function);
        }
    }
    return functions;
}

TEST(CollectionObject, IsTheCurrentOneWhileItLives)
{
    EXPECT_EQ(currentCollection(), nullptr);
    {
        const Collection outer;
        EXPECT_EQ(&collection(), &outer);
        {
            const Collection inner;
            EXPECT_EQ(&collection(), &inner);
        }
        EXPECT_EQ(&collection(), &outer);
    }
    EXPECT_EQ(currentCollection(), nullptr);
}

TEST(CollectionObject, FreesTablesAndListsOnceAndInTheirOrder)
{
    TraceRecorder trace;
    {
        Collection all;
        all.release();
        EXPECT_EQ(freed(trace),
                  (std::vector<std::string>{"FreeDeviceTable", "FreeSCSIAndIDEInfoListFromProc", "FreeSCSIDeviceInfo",
                                            "FreeSCSIControllerTypeDetailInfo", "FreeIDEInfo", "FreeControllerTable"}));
        trace.clear();
    }
    EXPECT_TRUE(trace.records().empty());
}

TEST(CollectionObject, ThatIsNotReleasedFreesAtItsEnd)
{
    TraceRecorder trace;
    {
        Collection all;
        ASSERT_EQ(MallocPortTable(4), 0);
        trace.clear();
    }
    EXPECT_EQ(freed(trace).size(), 6U);
    EXPECT_EQ(trace.textsOf("FreeControllerTable").size(), 7U);
}

class ControllerOfHost : public testing::Test {
protected:
    void append(const std::vector<uint16_t> &hosts)
    {
        all_.CtrlNumMib.TotalSCSIController = static_cast<uint16_t>(hosts.size());
        ASSERT_EQ(MallocSCSIControllerTable(all_.CtrlNumMib.TotalSCSIController), 0);
        for (size_t i = 0; i < hosts.size(); ++i) {
            const auto index = static_cast<uint16_t>(i + 1);
            ASSERT_TRUE(appendSCSIController(all_, {index, index, hosts[i]}));
        }
    }
    Collection all_;
};

TEST_F(ControllerOfHost, InAscendingOrderIsTheFirstOfItsHostNumber)
{
    append({0, 3, 3, 10});
    EXPECT_EQ(controllerIndexOfHost(all_, 0), 1);
    EXPECT_EQ(controllerIndexOfHost(all_, 3), 2);
    EXPECT_EQ(controllerIndexOfHost(all_, 10), 4);
    EXPECT_EQ(controllerIndexOfHost(all_, 4), 65535);
    EXPECT_EQ(controllerIndexOfHost(all_, 11), 65535);
}

// Hosts 5, 9, 65539 (3) and 65545 (9).
TEST_F(ControllerOfHost, WhoseNumbersWrapAroundIsFoundByItsLow16Bits)
{
    append({5, 9, 3, 9});
    EXPECT_EQ(controllerIndexOfHost(all_, 65539), 3);
    EXPECT_EQ(controllerIndexOfHost(all_, 9), 2);
    EXPECT_EQ(controllerIndexOfHost(all_, 5), 1);
    EXPECT_EQ(controllerIndexOfHost(all_, 4), 65535);
}

TEST_F(ControllerOfHost, WithoutControllersIsNone)
{
    EXPECT_EQ(controllerIndexOfHost(all_, 0), 65535);
}

} // namespace

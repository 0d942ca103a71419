// SPDX-License-Identifier: Apache-2.0
// SMART with the line "smart-state" in options.inf, and without it: whole inventories.
#include "support/inventory_fixture.h"
#include "support/snapshot_fixture.h"

#include <fcntl.h>
#include <gmock/gmock.h>

using inventory::disk;
using inventory::host;
using inventory::machine;
using nlohmann::json;
using testing::ElementsAre;
using Numbers = std::vector<int>;

namespace {

class SmartStateCure : public Inventory, public testing::WithParamInterface<const char *> {
protected:
    // A machine of this disk alone.
    void bootOne(const json &fields)
    {
        json one = disk(0, "ONLY");
        one.update(fields);
        boot(machine({host(0, "ahci", {one})}));
    }
    bool isOn() const { return machine_->smartSwitchedOn("/dev/sda"); }
    // Openings of nodes for writing.
    long writeOpenings() const
    {
        const auto openings = machine_->openings();
        return std::count_if(openings.begin(), openings.end(),
                             [](const sim::Opening &opening) { return (opening.flags & O_ACCMODE) != O_RDONLY; });
    }
};

INSTANTIATE_TEST_SUITE_P(Lines, SmartStateCure,
                         testing::Values("smart-state", "smart-state\ndisk-identity", "smart-state\ndisk-names",
                                         "smart-state\nside-by-side", "smart-state\nsleeping-disks", "all"));

TEST_P(SmartStateCure, AFailedReadDataDoesNotSwitchADiskOff)
{
    const json fails = {{"smart", {{"failing", true}}},
                        {"faults", {{{"on", "smartData"}, {"nth", 1}, {"errno", "EIO"}}}}};
    bootOne(fails);
    ASSERT_EQ(collect(), 0);
    EXPECT_FALSE(isOn()); // for good

    bootOne(fails);
    ASSERT_EQ(collect(GetParam()), 0);
    EXPECT_TRUE(isOn());
    EXPECT_EQ(predictions(), Numbers{1});
}

TEST_P(SmartStateCure, ADiskThatWasOffIsOffAgain)
{
    bootOne({{"smart", {{"enabled", false}, {"failing", true}}}});
    ASSERT_EQ(collect(GetParam()), 0);
    EXPECT_EQ(predictions(), Numbers{1});
    EXPECT_FALSE(isOn());
}

TEST_P(SmartStateCure, WhatCannotBeReadIsUnknown)
{
    const json unreadable[] = {
        {{"smart", {{"supported", false}}}},
        {{"faults", {{{"on", "smartEnable"}, {"hostStatus", 3}}}}},
        {{"faults", {{{"on", "smartStatus"}, {"sense", "70 00 05 00 00 00 00 0a 00 00 00 00 24 00 00 00 00 00"}}}}},
    };
    for (const json &fields : unreadable) {
        SCOPED_TRACE(fields.dump());
        bootOne(fields);
        ASSERT_EQ(collect(), 0);
        EXPECT_EQ(predictions(), Numbers{0});

        bootOne(fields);
        ASSERT_EQ(collect(GetParam()), 0);
        EXPECT_EQ(predictions(), Numbers{-1});
    }
}

TEST_P(SmartStateCure, FixedFormatSenseDataAreUnderstood)
{
    const json failing = {{"smart", {{"failing", true}}}, {"ataStatus", "fixed"}};
    bootOne(failing);
    ASSERT_EQ(collect(), 0);
    EXPECT_EQ(predictions(), Numbers{0});

    bootOne(failing);
    ASSERT_EQ(collect(GetParam()), 0);
    EXPECT_EQ(predictions(), Numbers{1});
}

TEST_P(SmartStateCure, TheWearIsReadWhileSmartIsOn)
{
    const json ssd = {{"model", "MODELNAME0123456"},
                      {"smart", {{"enabled", false}, {"attributes", {{{"id", 231}, {"current", 70}}}}}}};
    const auto levelWith = [&](const char *options) {
        bootOne(ssd);
        const EnduranceTable table(*machine_, "MODELNAME0123456,231,100,80,60,40,20,0\n");
        EXPECT_EQ(collect(options), 0);
        EXPECT_EQ(collection().DevNumMib.TotalLifeSpan, 1);
        EXPECT_FALSE(isOn());
        return collection().pLifeSpanTbl[0].EnduranceRemaining;
    };
    EXPECT_EQ(levelWith(""), -1);
    EXPECT_EQ(levelWith(GetParam()), 4);
}

TEST_P(SmartStateCure, ADriveOfTheTableWithoutTheAttributeHasNoLevel)
{
    bootOne({{"model", "MODELNAME0123456"}, {"smart", {{"attributes", {{{"id", 9}}}}}}});
    const EnduranceTable table(*machine_, "MODELNAME0123456,231,100,80,60,40,20,0\n");
    ASSERT_EQ(collect(GetParam()), 0);
    ASSERT_EQ(collection().DevNumMib.TotalLifeSpan, 1);
    EXPECT_EQ(collection().pLifeSpanTbl[0].EnduranceRemaining, -1);
}

TEST_P(SmartStateCure, NoNodeIsOpenedForWritingOrWaitsForTheDevice)
{
    bootOne(json::object());
    ASSERT_EQ(collect(), 0);
    EXPECT_GT(writeOpenings(), 0);
    ASSERT_EQ(collect(GetParam()), 0);
    EXPECT_EQ(writeOpenings(), 0);
    const auto openings = machine_->openings();
    EXPECT_FALSE(openings.empty());
    for (const sim::Opening &opening : openings) {
        EXPECT_EQ(opening.flags & O_NONBLOCK, O_NONBLOCK) << opening.node;
    }
    ASSERT_EQ(collect(), 0); // and without the line again
    EXPECT_GT(writeOpenings(), 0);
}

TEST_P(SmartStateCure, ADiskThatRefusesToBeWrittenIsRead)
{
    const json readOnly = {{"smart", {{"failing", true}}}, {"writeOpenError", "EROFS"}};
    bootOne(readOnly);
    ASSERT_EQ(collect(), 0);
    EXPECT_EQ(predictions(), Numbers{0});

    bootOne(readOnly);
    ASSERT_EQ(collect(GetParam()), 0);
    EXPECT_EQ(predictions(), Numbers{1});
}

} // namespace

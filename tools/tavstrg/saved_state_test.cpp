// SPDX-License-Identifier: Apache-2.0
#include "tavstrg/saved_state.h"

#include "support/tool_state.h"
#include "tavstrg/failure.h"

#include <gmock/gmock.h>
#include <nlohmann/json.hpp>

namespace tool {
namespace {

using namespace testing_support;

std::string property(const broker::Instance &instance, const std::string &name)
{
    const broker::Value *value = instance.find(name);
    return value == nullptr ? "absent" : value->toString();
}

std::vector<std::string> summary(const SavedState &state)
{
    std::vector<std::string> lines;
    for (const StateBlock &block : state.blocks) {
        lines.push_back(block.className + " " + std::to_string(block.offset) + " " +
                        std::to_string(block.records.size()) + "/" + std::to_string(block.expected));
    }
    return lines;
}

TEST(SavedState, ReadsEveryBlockOfAWholeFile)
{
    const SavedState state = parseSavedState(wholeState() + "tail");
    EXPECT_EQ(state.version, "1.0.0.1");
    EXPECT_EQ(state.damage, "");
    EXPECT_EQ(state.trailing, 4U);
    EXPECT_THAT(summary(state), testing::ElementsAre("TAV_StorageConfig 18 1/1", "TAV_StorageTotalNumber 30 1/1",
                                                     "TAV_StorageController 50 2/2", "TAV_StorageLifeSpan 290 1/1"));
    EXPECT_EQ(property(state.blocks[0].records[0], "MonitorCycle"), "90");
    EXPECT_EQ(property(state.blocks[2].records[1], "Index"), "2");
    EXPECT_EQ(property(state.blocks[2].records[1], "InterfaceType"), "-1");
    EXPECT_EQ(property(state.blocks[2].records[1], "Model"), std::string(64, 'M'));
    EXPECT_EQ(property(state.blocks[3].records[0], "EnduranceRemaining"), "-1");
}

TEST(SavedState, TheOldVersionHasShorterTotalsAndNoLifeSpans)
{
    const SavedState state = parseSavedState(oldState());
    EXPECT_EQ(state.version, "1.0.0.0");
    EXPECT_EQ(state.damage, "");
    EXPECT_EQ(state.trailing, 0U);
    EXPECT_THAT(summary(state), testing::ElementsAre("TAV_StorageConfig 18 1/1", "TAV_StorageTotalNumber 30 1/1",
                                                     "TAV_StorageController 46 1/1"));
    EXPECT_EQ(property(state.blocks[1].records[0], "LifeSpanTotalNumber"), "0");
}

TEST(SavedState, AnUnknownVersionStillShowsTheConfiguration)
{
    const SavedState state = parseSavedState("# Version=9.9.9.9\n" + wholeState().substr(18));
    EXPECT_EQ(state.version, "");
    EXPECT_THAT(summary(state), testing::ElementsAre("TAV_StorageConfig 18 1/1"));
    EXPECT_EQ(state.damage, "the version line at byte 0 is none that is known");
}

// Wherever a file is cut, what stands before the cut is shown and the cut is told.
TEST(SavedState, IsShownAsFarAsItGoesWhereverItIsCut)
{
    const std::string whole = wholeState();
    size_t recordsBefore = 0;
    for (size_t size = 0; size < whole.size(); ++size) {
        const SavedState state = parseSavedState(whole.substr(0, size));
        EXPECT_NE(state.damage, "") << size;
        size_t records = 0;
        for (const StateBlock &block : state.blocks) {
            records += block.records.size();
        }
        EXPECT_GE(records, recordsBefore) << size;
        recordsBefore = records;
    }
    EXPECT_EQ(recordsBefore, 4U) << "all but the life span, whose last byte is missing";
    EXPECT_EQ(parseSavedState(whole.substr(0, 175)).damage,
              "TAV_StorageController: record 2 of 2 is cut off at byte 170, 5 of its 120 bytes are there");
    EXPECT_EQ(parseSavedState("# Ver").damage, "the version line is cut off at byte 5");
}

TEST(SavedState, TextAndJsonTellTheSame)
{
    const SavedState state = parseSavedState(wholeState().substr(0, 175));
    const std::string text = savedStateText(state, 0);
    EXPECT_THAT(text, testing::HasSubstr("Saved state, version 1.0.0.1\n"));
    EXPECT_THAT(text, testing::HasSubstr("1 of 2 TAV_StorageController at byte 50\n"));
    EXPECT_THAT(text, testing::HasSubstr("\nDamaged: TAV_StorageController: record 2 of 2 is cut off at byte 170"));
    const nlohmann::json json = nlohmann::json::parse(savedStateJson(state));
    EXPECT_EQ(json["version"], "1.0.0.1");
    EXPECT_EQ(json["blocks"][2]["class"], "TAV_StorageController");
    EXPECT_EQ(json["blocks"][2]["expected"], 2);
    EXPECT_EQ(json["blocks"][2]["records"].size(), 1U);
    EXPECT_EQ(json["blocks"][2]["records"][0]["Index"], "1");
    EXPECT_EQ(json["damage"], state.damage);
}

TEST(SavedState, TellsTheTailAndAnUnknownVersion)
{
    const SavedState tail = parseSavedState(wholeState() + "tail");
    EXPECT_THAT(savedStateText(tail, 0), testing::HasSubstr("\n4 bytes behind the last record are ignored\n"));
    EXPECT_EQ(nlohmann::json::parse(savedStateJson(tail))["trailingBytes"], 4);
    EXPECT_TRUE(nlohmann::json::parse(savedStateJson(tail))["damage"].is_null());
    const SavedState unknown = parseSavedState("# Version=9.9.9.9\n" + wholeState().substr(18));
    EXPECT_THAT(savedStateText(unknown, 0), testing::StartsWith("Saved state, version unknown\n"));
    EXPECT_TRUE(nlohmann::json::parse(savedStateJson(unknown))["version"].is_null());
}

TEST(SavedState, AFileThatCannotBeReadIsAFailure)
{
    EXPECT_THROW(readStateFile("/nowhere/tavstrgsave.dat"), Failure);
    EXPECT_THROW(readStateFile("/"), Failure) << "a directory";
    EXPECT_THROW(readStateFile("/dev/zero"), Failure) << "endless";
}

} // namespace
} // namespace tool

// SPDX-License-Identifier: Apache-2.0
// Which alerts a history of snapshots gives.
#include "support/history_fixture.h"

using namespace tavstrg;

// The collector as it is, but that a test may say what it has read. The program is linked so that calls come here.
extern "C" int realCollector(int smartmode, DatInfo *descriptors) __asm__("__real__Z18strgGetCurrentInfoiP7DatInfo");
extern "C" int testedCollector(int smartmode, DatInfo *descriptors) __asm__("__wrap__Z18strgGetCurrentInfoiP7DatInfo");

extern "C" int testedCollector(int smartmode, DatInfo *descriptors)
{
    if (!g_collect) {
        return realCollector(smartmode, descriptors);
    }
    g_collect(descriptors);
    return 0;
}

namespace {

using testing::ElementsAreArray;

struct Step {
    Snapshot disks;
    std::vector<std::string> alerts;
    bool restart = false; // the provider is stopped and started before it
};

struct Case {
    const char *name;
    Snapshot first;
    std::vector<Step> steps;
    int serviceMode = 1;
    int16_t smartMode = 1;
};

const Case kCases[] = {
    {"nothing happens", {{"A"}}, {{{{"A"}}, {}}, {{{"A"}}, {}}}},
    {"a disk begins to fail, stays so, recovers, fails again",
     {{"A"}, {"B"}},
     {{{{"A"}, {"B", 1}}, {"smart 2"}},
      {{{"A"}, {"B", 1}}, {}},
      {{{"A"}, {"B"}}, {}},
      {{{"A"}, {"B", 1}}, {"smart 2"}}}},
    {"a disk that fails from the start", {{"A", 1}}, {{{{"A", 1}}, {"smart 1"}}, {{{"A", 1}}, {}}}},
    {"a state that cannot be read in between",
     {{"A"}},
     {{{{"A", 1}}, {"smart 1"}}, {{{"A", -1}}, {}}, {{{"A", 1}}, {"smart 1"}}}},
    {"failing disks are not told again after a restart",
     {{"A"}, {"B"}},
     {{{{"A", 1}, {"B"}}, {"smart 1"}}, {{{"A", 1}, {"B"}}, {}, true}, {{{"A", 1}, {"B", 1}}, {"smart 2"}, true}}},
    {"a disk is added", {{"A"}}, {{{{"A"}, {"B"}}, {"config"}}, {{{"A"}, {"B"}}, {}}}},
    {"a failing disk is added, just past the stored ones",
     {{"A"}},
     {{{{"A"}, {"B", 1}}, {"smart 2", "config"}}, {{{"A"}, {"B", 1}}, {}}}},
    {"two failing disks are added", {{"A"}}, {{{{"A"}, {"B", 1}, {"C", 1}}, {"smart 2", "smart 3", "config"}}}},
    {"a disk is removed", {{"A"}, {"B"}}, {{{{"B"}}, {"config"}}, {{{"B"}}, {}}}},
    {"states are compared by position: a failing disk moves up",
     {{"A"}, {"B"}},
     {{{{"A"}, {"B", 1}}, {"smart 2"}}, {{{"B", 1}}, {"smart 1", "config"}}}},
    {"the last disk is removed", {{"A"}}, {{{}, {"config"}}, {{}, {}}, {{{"A"}}, {"config"}}}},
    {"a disk is replaced by its like", {{"A"}}, {{{{"B"}}, {}}, {{{"B", 0, kNoLevel, "OTHER"}}, {}}}},
    {"a disk is replaced by a failing one", {{"A"}}, {{{{"B", 1}}, {"smart 1"}}}},
    {"a failing disk is replaced by a failing one", {{"A"}}, {{{{"A", 1}}, {"smart 1"}}, {{{"B", 1}}, {}}}},
    {"a change while the provider is stopped", {{"A"}}, {{{{"A"}}, {}}, {{{"A"}, {"B"}}, {"config"}, true}}},
    {"the same hardware after a restart", {{"A"}, {"B"}}, {{{{"A"}, {"B"}}, {}}, {{{"A"}, {"B"}}, {}, true}}},
    {"SMART handling is switched off in the configuration",
     {{"A", 0, 5}},
     {{{{"A", 1, 5}}, {"level 5 of 1"}}, {{{"A", 1, 4}, {"B", 1}}, {"level 4 of 1", "config"}}},
     1,
     0},
    {"not in service mode", {{"A", 0, 5}}, {{{{"A", 1, 1}}, {}}, {{{"A", 1, 2}, {"B", 1}}, {}}}, 0},
    {"a level sinks and rises, a step or more at a time",
     {{"A", 0, 5}},
     {{{{"A", 0, 5}}, {"level 5 of 1"}},
      {{{"A", 0, 5}}, {}},
      {{{"A", 0, 4}}, {"level 4 of 1"}},
      {{{"A", 0, 2}}, {"level 2 of 1"}},
      {{{"A", 0, 1}}, {"level 1 of 1"}},
      {{{"A", 0, 3}}, {"level 3 of 1"}}}},
    {"a level that cannot be read is the stored one",
     {{"A", 0, -1}},
     {{{{"A", 0, -1}}, {}},
      {{{"A", 0, 4}}, {"level 4 of 1"}},
      {{{"A", 0, -1}}, {}},
      {{{"A", 0, 4}}, {}},
      {{{"A", 0, -1}}, {}},
      {{{"A", 0, 3}}, {"level 3 of 1"}}}},
    {"level 0 is stored without an alert",
     {{"A", 0, 1}},
     {{{{"A", 0, 1}}, {"level 1 of 1"}}, {{{"A", 0, 0}}, {}}, {{{"A", 0, 0}}, {}}, {{{"A", 0, 1}}, {"level 1 of 1"}}}},
    {"levels that do not exist are stored without an alert",
     {{"A", 0, 1}},
     {{{{"A", 0, 6}}, {}}, {{{"A", 0, -2}}, {}}, {{{"A", 0, 2}}, {"level 2 of 1"}}}},
    {"a level goes with the serial number, not with the position",
     {{"A", 0, 5}, {"B", 0, 5}},
     {{{{"A", 0, 5}, {"B", 0, 3}}, {"level 5 of 1", "level 3 of 2"}},
      {{{"B", 0, 3}, {"A", 0, 5}}, {}},
      {{{"B", 0, 3}, {"A", 0, 4}}, {"level 4 of 2"}}}},
    {"a disk that is new has no level to compare with",
     {{"A", 0, 5}},
     {{{{"A", 0, 5}}, {"level 5 of 1"}},
      {{{"A", 0, 5}, {"B", 0, 1}}, {"config"}},
      {{{"A", 0, 5}, {"B", 0, 2}}, {"level 2 of 2"}}}},
    {"a disk is replaced by its like with another level",
     {{"A", 0, 5}},
     {{{{"A", 0, 5}}, {"level 5 of 1"}}, {{{"B", 0, 1}}, {}}}},
    {"a stored serial number may be longer", {{"AB", 0, 5}}, {{{{"A", 0, 4}}, {"level 4 of 1"}}, {{{"AB", 0, 3}}, {}}}},
    {"an empty serial number matches the first stored device",
     {{"A", 0, 5}, {"B", 0, 4}},
     {{{{"A", 0, 5}, {"B", 0, 4}}, {"level 5 of 1", "level 4 of 2"}}, {{{"A", 0, 5}, {"", 0, 4}}, {"level 4 of 2"}}}},
    {"a disk gets a level that had none", {{"A"}}, {{{{"A", 0, 1}}, {"config"}}, {{{"A", 0, 2}}, {"level 2 of 1"}}}},
    {"levels are known after a restart",
     {{"A", 0, 5}},
     {{{{"A", 0, 5}}, {"level 5 of 1"}}, {{{"A", 0, 5}}, {}, true}, {{{"A", 0, 2}}, {"level 2 of 1"}, true}}},
    {"everything at once, in order",
     {{"A", 0, 5}, {"B"}},
     {{{{"A", 1, 4}, {"B", 1}, {"C"}}, {"smart 1", "smart 2", "level 4 of 1", "config"}}}},
};

class Alerts : public History, public testing::WithParamInterface<Case> {};

TEST_P(Alerts, FollowFromTheHistory)
{
    const Case &history = GetParam();
    SCOPED_TRACE(history.name);
    g_srvmod = history.serviceMode;
    build(history.first, history.smartMode);
    size_t number = 0;
    for (const Step &step : history.steps) {
        SCOPED_TRACE(++number);
        if (step.restart) {
            restart();
        }
        EXPECT_EQ(pass(step.disks), 0);
        EXPECT_THAT(sent(), ElementsAreArray(step.alerts));
        // In either mode the store has the values that were read.
        const auto devices = stored<StrgScsiRec>(TAV_CID_STRG_SCSI);
        ASSERT_EQ(devices.size(), step.disks.size());
        EXPECT_EQ(shmSt[TAV_CID_STRG_SCSI].shmNum, static_cast<int32_t>(step.disks.size()));
        EXPECT_EQ(savedDisks(), static_cast<int>(step.disks.size()));
        for (size_t i = 0; i < devices.size(); ++i) {
            EXPECT_EQ(devices[i].SerialNumber, step.disks[i].serial);
            EXPECT_EQ(devices[i].Model, step.disks[i].model);
            EXPECT_EQ(stored<StrgHddRec>(TAV_CID_STRG_HDD)[i].SmartStatus, step.disks[i].smart);
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Histories, Alerts, testing::ValuesIn(kCases));

} // namespace

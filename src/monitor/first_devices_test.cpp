// SPDX-License-Identifier: Apache-2.0
// The option first-devices: the first device of a class whose stored array is absent.
#include "support/history_fixture.h"
#include "support/options_fixture.h"

using namespace tavstrg;

namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;

class FirstDevices : public History, public testing::WithParamInterface<const char *> {
protected:
    // What a pass with the line must do for a store without devices: take over the disk and go on from there.
    void expectTaken(const Disk &first, const std::vector<std::string> &alertsOfFirst)
    {
        EXPECT_EQ(pass({first}), 0);
        EXPECT_THAT(sent(), testing::ElementsAreArray(alertsOfFirst));
        EXPECT_EQ(savedDisks(), 1);
        EXPECT_EQ(stored<StrgScsiRec>(TAV_CID_STRG_SCSI).size(), 1U);
        EXPECT_EQ(pass({first}), 0);
        EXPECT_THAT(sent(), IsEmpty()) << "the same disk again";
    }
};

TEST_P(FirstDevices, FirstFailingDiskIsAlertedAndStored)
{
    build({});
    for (int round = 0; round < 3; ++round) {
        EXPECT_EQ(pass({{"A", 1}}), -1) << "for good, without the line";
        EXPECT_THAT(sent(), IsEmpty());
    }
    const OptionsInForce on(machine, GetParam());
    expectTaken({"A", 1}, {"smart 1", "config"});
}

TEST_P(FirstDevices, FirstRatedSsdIsStoredAsANewDevice)
{
    build({});
    for (int round = 0; round < 3; ++round) {
        EXPECT_EQ(pass({{"A", 0, 5}}), -1) << "for good, without the line";
        EXPECT_THAT(sent(), IsEmpty());
    }
    const OptionsInForce on(machine, GetParam());
    expectTaken({"A", 0, 5}, {"config"});
    EXPECT_EQ(pass({{"A", 0, 3}}), 0);
    EXPECT_THAT(sent(), ElementsAre("level 3 of 1")) << "compared with its first level from then on";
}

TEST_P(FirstDevices, StopAndStartDoNotEndItWithoutTheLine)
{
    build({});
    EXPECT_EQ(pass({}), 0); // saves a state without devices
    restart();
    EXPECT_EQ(pass({{"A", 1}}), -1);
    const OptionsInForce on(machine, GetParam());
    expectTaken({"A", 1}, {"smart 1", "config"});
}

TEST_P(FirstDevices, StoredRecordsAreComparedAsBefore)
{
    const OptionsInForce on(machine, GetParam());
    build({{"A", 1}, {"B", 0, 4}});
    EXPECT_EQ(pass({{"A", 1}, {"B", 0, 4}}), 0);
    EXPECT_THAT(sent(), ElementsAre("smart 1", "level 4 of 2"));
    EXPECT_EQ(pass({{"A", 1}, {"B", 0, 4}}), 0);
    EXPECT_THAT(sent(), IsEmpty());
}

TEST_P(FirstDevices, ArraysThatAreNeverAbsentAreStillNeeded)
{
    const OptionsInForce on(machine, GetParam());
    build({{"A"}});
    std::free(takeRecords(instSt[TAV_CID_STRG_CONF]));
    shmDestroy(&cInfo, &shmSt[TAV_CID_STRG_CONF]);
    EXPECT_EQ(pass({{"A", 1}}), -1);
    EXPECT_THAT(linesOf("strgCheckConfigChange"),
                Contains("3 _OUT_ param(instSt[TAV_CID_STRG_CONF].datAdr) Failure!!"));
}

INSTANTIATE_TEST_SUITE_P(Lines, FirstDevices, testing::Values("first-devices\n", "all\n"),
                         [](const auto &testInfo) { return testInfo.param[0] == 'a' ? "All" : "Alone"; });

} // namespace

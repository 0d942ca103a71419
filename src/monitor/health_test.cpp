// SPDX-License-Identifier: Apache-2.0
// The steps of a pass that alert, line by line, and what they are decided by.
#include "endurance/endurance.h"
#include "support/history_fixture.h"

using namespace tavstrg;

namespace {

using testing::Contains;
using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;

using Pass = History;

TEST_F(Pass, ALevelThatCannotBeReadDoesNotOverwriteTheStoredOne)
{
    build({{"A", 0, 4}});
    ASSERT_EQ(pass({{"A", 0, 4}}), 0);
    ASSERT_EQ(pass({{"A", 0, -1}}), 0);
    EXPECT_EQ(stored<StrgLifeRec>(TAV_CID_STRG_LIFE)[0].EnduranceRemaining, 4);
    ASSERT_EQ(pass({{"A", 0, 0}}), 0);
    EXPECT_EQ(stored<StrgLifeRec>(TAV_CID_STRG_LIFE)[0].EnduranceRemaining, 0);
}

// Where the lines of the alerts stand among those of the pass.
TEST_F(Pass, TheStepsOfTheAlertsAreTracedInOrder)
{
    build({{"A", 0, 5}, {"B", 0, 5}});
    ASSERT_EQ(pass({{"A", 1, 5}, {"B", 0, 5}}), 0);
    trace->clear();
    g_M2SSDEndu = 37;
    const int ret = pass({{"A", 1, 5}, {"B", 1, 2}});
    g_M2SSDEndu = 0;
    ASSERT_EQ(ret, 0);
    std::vector<std::string> lines = linesOf("strgCheckConfigChange");
    const auto first = std::ranges::find(lines, "0 strgGetCurrentInfo()") + 1;
    const auto last = std::ranges::find(lines, "0 Idx=[2] curNum[0]<=>instSt[0]");
    EXPECT_THAT(
        std::vector(first, last),
        ElementsAre("0 HDD[0] need SMART-alert.", "0 but before same SMARTstatus. not Alert.",
                    "0 HDD[1] need SMART-alert.", "0 SSD-LifeSpan_[0]",
                    "0 cur[LIFE].HDDIndex=[1] cur[SCSI].DevTypeIndex=[1]", "0 cur[LIFE].Endu=[5] inst[LIFE].Endu=[5]",
                    "0 SSD-LifeSpan_[1]", "0 cur[LIFE].HDDIndex=[2] cur[SCSI].DevTypeIndex=[1]",
                    "0 cur[LIFE].HDDIndex=[2] cur[SCSI].DevTypeIndex=[2]", "0 cur[LIFE].Endu=[2] inst[LIFE].Endu=[5]",
                    "3 inst[LIFE].Endu=[5] -> cur[LIFE].Endu=[2:37]"));
    EXPECT_THAT(sent(), ElementsAre("smart 1", "level 5 of 1", "level 5 of 2", "smart 2", "level 2 of 2"));
}

TEST_F(Pass, ConfigurationChangeIsAlertedAfterPublishingAndSaving)
{
    build({{"A"}});
    int segment = 0;
    bool saved = false;
    alerts.onReceipt = [&] {
        segment = shmSt[TAV_CID_STRG_HDD].shmNum;
        saved = machine.exists(kSavedStateFile);
    };
    ASSERT_EQ(pass({{"A"}, {"B"}}), 0);
    EXPECT_THAT(sent(), ElementsAre("config"));
    EXPECT_EQ(segment, 2);
    EXPECT_TRUE(saved);
    EXPECT_EQ(linesOf("strgCheckConfigChange").back(), "0 _OUT_ ret=[0]");
}

TEST_F(Pass, ChangeThatCannotBeSavedIsNeverAlerted)
{
    build({{"A"}});
    machine.makeDirectory(kSavedStateFile);
    EXPECT_EQ(pass({{"A"}, {"B"}}), -1);
    EXPECT_EQ(shmSt[TAV_CID_STRG_HDD].shmNum, 2);
    machine.remove(kSavedStateFile);
    EXPECT_EQ(pass({{"A"}, {"B"}}), 0);
    EXPECT_THAT(sent(), IsEmpty());
}

TEST_F(Pass, AnAlertThatIsNotDeliveredIsNotRetried)
{
    build({{"A"}});
    alerts.answer = 1;
    EXPECT_EQ(pass({{"A", 1}, {"B"}}), 0);
    EXPECT_THAT(sent(), ElementsAre("smart 1", "config"));
    alerts.answer = 0;
    EXPECT_EQ(pass({{"A", 1}, {"B"}}), 0);
    EXPECT_THAT(sent(), IsEmpty());
}

TEST_F(Pass, WithoutTheAlertLibraryThePassGoesOn)
{
    build({{"A"}});
    g_Func.alert.SendIndication = nullptr;
    EXPECT_EQ(pass({{"A", 1}, {"B"}}), 0);
    EXPECT_EQ(stored<StrgHddRec>(TAV_CID_STRG_HDD).size(), 2U);
}

TEST_F(Pass, AFailingDiskWhereNoneWasStoredFailsThePass)
{
    build({});
    EXPECT_EQ(pass({{"A", 1}}), -1);
    EXPECT_THAT(linesOf("strgCheckConfigChange"), Contains("0 HDD[0] need SMART-alert."));
    EXPECT_EQ(linesOf("strgCheckConfigChange").back(), "3 _OUT_ param(instSt[TAV_CID_STRG_HDD].datAdr) Failure!!");
    EXPECT_THAT(sent(), IsEmpty());
}

TEST_F(Pass, ALevelWhereNoDeviceWasStoredFailsThePass)
{
    build({});
    EXPECT_EQ(pass({{"A", 0, 5}}), -1);
    EXPECT_EQ(linesOf("strgCheckConfigChange").back(), "3 _OUT_ param(instSt[TAV_CID_STRG_SCSI].datAdr) Failure!!");
    EXPECT_THAT(sent(), IsEmpty());
}

// Passes with records that no snapshot has.
class Oddities : public History {
protected:
    static StrgHddRec failing(int16_t interfaceType, uint16_t interfaceTypeIndex)
    {
        return {1, interfaceType, interfaceTypeIndex, 0, "", 1, 1, 1, 1, 1, 0};
    }
    // A pass over two SCSI devices with these disks and levels, after two good disks and levels that were not read.
    int passOver(const std::vector<StrgHddRec> &disks, const std::vector<StrgLifeRec> &levels)
    {
        build({{"A", 0, -1}, {"B", 0, -1}});
        return passWith([&](DatInfo *descriptors) {
            fillSnapshot(descriptors, {{"A"}, {"B"}});
            fill(descriptors[TAV_CID_STRG_HDD], disks);
            fill(descriptors[TAV_CID_STRG_LIFE], levels);
        });
    }
    // Of the first alert.
    std::vector<std::string> strings() const
    {
        std::vector<std::string> found = alerts.records().at(0).strings;
        found.pop_back();
        return found;
    }
};

TEST_F(Oddities, AScsiDiskWhoseDeviceIsBeyondTheListFailsThePass)
{
    EXPECT_EQ(passOver({failing(0, 3)}, {}), -1);
    const std::vector<std::string> lines = linesOf("strgCheckConfigChange");
    const auto mismatch = std::ranges::find(lines, "3 IFType[0] and Idx[3] is Mismatch SCSI-num[2] Failure!!");
    ASSERT_NE(mismatch, lines.end());
    EXPECT_EQ(std::count_if(mismatch, lines.end(), [](const auto &line) { return line.starts_with("0 memfree"); }), 9);
    EXPECT_EQ(lines.back(), "0 _OUT_ ret=[-1]");
    EXPECT_THAT(sent(), IsEmpty());
    EXPECT_EQ(stored<StrgHddRec>(TAV_CID_STRG_HDD).size(), 2U) << "as it was";
    EXPECT_FALSE(machine.exists(kSavedStateFile));
}

TEST_F(Oddities, AnIdeDiskIsDescribedByTheScsiDeviceOfItsNumber)
{
    EXPECT_EQ(passOver({failing(1, 2)}, {}), 0);
    EXPECT_THAT(strings(), ElementsAre("Address(Controller-Drive) : 0-", "Hard Disk[2] : MODEL "));
}

TEST_F(Oddities, ADeviceThatIsNotThereIsAnEmptyDescription)
{
    for (const uint16_t index : std::initializer_list<uint16_t>{0, 3, 65535}) {
        alerts.clear();
        EXPECT_EQ(passOver({failing(1, index)}, {}), 0);
        EXPECT_THAT(strings(), ElementsAre("Address(Controller-Drive) : 0-", "Hard Disk[0] :  ")) << index;
    }
    alerts.clear();
    EXPECT_EQ(passOver({failing(0, 0)}, {}), 0);
    EXPECT_THAT(strings(), ElementsAre("Address(Controller-Bus-ID-LUN) : 0-0-0-0", "Hard Disk[0] :   "));
}

TEST_F(Oddities, ALevelWithoutADeviceIsLeftAlone)
{
    for (const int16_t number : std::initializer_list<int16_t>{0, 3, -1}) {
        EXPECT_EQ(passOver({}, {{1, number, 3, 0}}), 0);
    }
    EXPECT_THAT(sent(), Each("config"));
    EXPECT_EQ(passOver({}, {{1, 1, 3, 0}}), 0) << "no disk at the position: an interface all the same";
    EXPECT_THAT(sent(), ElementsAre("level 3 of 1", "config"));
}

TEST(HealthDecisions, ASmartAlertIsDueForWhatIsNewOrWasDifferent)
{
    const StrgHddRec stored[] = {{1, 0, 1, 0, "", 1, 1, 1, 1, 1, 0}, {2, 0, 2, 0, "", 1, 1, 1, 1, 0, 0}};
    const bool due[] = {false, true, true, true};
    for (size_t i = 0; i < std::size(due); ++i) {
        EXPECT_EQ(smartAlertDue(stored, i, 1), due[i]) << i;
    }
    EXPECT_TRUE(smartAlertDue({}, 0, 1));
}

TEST(HealthDecisions, EachLevelHasItsEvent)
{
    const uint32_t events[] = {0, 0xC0040450, 0x8004044F, 0x8004044E, 0x4004044D, 0x4004044C, 0};
    for (int16_t level = 0; level < 7; ++level) {
        EXPECT_EQ(lifeSpanEvent(level), events[level]) << level;
    }
    EXPECT_EQ(lifeSpanEvent(-1), 0U);
    EXPECT_EQ(lifeSpanEvent(INT16_MIN), 0U);
    EXPECT_EQ(lifeSpanEvent(INT16_MAX), 0U);
}

TEST(HealthDecisions, ADescriptionHasTheWholeOfEachText)
{
    StrgScsiRec device = {};
    device.Index = 1;
    device.ControllerIndex = 2;
    device.TargetID = 3;
    device.Bus = 4;
    device.LUN = 5;
    std::memset(device.Vendor, 'V', sizeof device.Vendor); // also a text without a terminator
    std::memset(device.Model, 'M', sizeof device.Model);
    std::memset(device.FirmwareRevision, 'F', sizeof device.FirmwareRevision);
    const alertDiskSt disk = describeDisk(&device, 1);
    EXPECT_EQ(disk.Index, 1);
    EXPECT_EQ(disk.InterfaceType, 1);
    EXPECT_EQ(disk.ControllerIndex, 2);
    EXPECT_EQ(disk.TargetID, 3);
    EXPECT_EQ(disk.Bus, 4);
    EXPECT_EQ(disk.LUN, 5);
    EXPECT_EQ(disk.Vendor, std::string(sizeof device.Vendor, 'V'));
    EXPECT_EQ(disk.Model, std::string(sizeof device.Model, 'M'));
    EXPECT_EQ(disk.FirmwareRevision, std::string(sizeof device.FirmwareRevision, 'F'));
    EXPECT_EQ(disk.DrivePosition, 0);
}

} // namespace

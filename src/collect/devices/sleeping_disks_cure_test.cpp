// SPDX-License-Identifier: Apache-2.0
// Sleeping and unused disks with the line "sleeping-disks" in options.inf, and without it: whole inventories.
#include "collect/devices/last_values.h"
#include "support/inventory_fixture.h"
#include "support/snapshot_fixture.h"

#include <gmock/gmock.h>

using inventory::disk;
using inventory::host;
using inventory::machine;
using nlohmann::json;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;
using Numbers = std::vector<int>;
using Texts = std::vector<std::string>;

namespace {

// ATA commands and SCSI operation codes that reached a disk, as hexadecimal text: those of ATA PASS-THROUGH as "ata
// e5".
Texts commandsTo(const sim::Machine &machine, const std::string &node)
{
    Texts sent;
    for (const sim::Command &command : machine.commands()) {
        if (command.device == node && !command.bytes.empty()) {
            const bool ata = command.bytes.size() == 16 && command.bytes[0] == 0x85;
            char text[8];
            std::snprintf(text, sizeof text, "%02x", ata ? command.bytes[14] : command.bytes[0]);
            sent.push_back((ata ? "ata " : "") + std::string(text));
        }
    }
    return sent;
}

Texts openingsOf(const sim::Machine &machine, const std::string &node)
{
    Texts nodes;
    for (const sim::Opening &opening : machine.openings()) {
        if (opening.node == node) {
            nodes.push_back(opening.node);
        }
    }
    return nodes;
}

class SleepingCure : public Inventory, public testing::WithParamInterface<const char *> {
protected:
    static json sleeper(const json &power, int id = 0, const std::string &serial = "SLEEPER")
    {
        json one = disk(id, serial);
        one["power"] = power;
        one["model"] = "MODELNAME0123456";
        one["smart"] = {{"failing", true}, {"attributes", {{{"id", 231}, {"current", 70}}}}};
        return one;
    }
    void bootOne(const json &one) { boot(machine({host(0, "ahci", {one})})); }
    void change(const json &one) { machine_->change(machine({host(0, "ahci", {one})}).dump()); }
    HardDiskEntry onlyDisk() const
    {
        EXPECT_EQ(collection().hd_dev_cnt, 1);
        EXPECT_EQ(collection().scsi_dev_cnt, 1);
        return collection().pHDDevTbl[0];
    }
    sim::DiskPower power() const { return machine_->power("/dev/sda"); }
};

INSTANTIATE_TEST_SUITE_P(Lines, SleepingCure,
                         testing::Values("sleeping-disks", "sleeping-disks\nsmart-state", "sleeping-disks\ndisk-names",
                                         "sleeping-disks\ndisk-identity", "sleeping-disks\nside-by-side", "all"));

void expectSameValues(const HardDiskEntry &now, const HardDiskEntry &before)
{
    EXPECT_EQ(now.CylindersPerUnit, before.CylindersPerUnit);
    EXPECT_EQ(now.TracksPerCylinder, before.TracksPerCylinder);
    EXPECT_EQ(now.SectorsPerTrack, before.SectorsPerTrack);
    EXPECT_EQ(now.Capacity, before.Capacity);
    EXPECT_EQ(now.SmartPredict, before.SmartPredict);
    EXPECT_STREQ(now.DevPath, before.DevPath);
}

TEST_P(SleepingCure, ADiskThatTheKernelHasSuspendedIsNotEvenOpened)
{
    const json suspended = sleeper({{"state", "standby"}, {"runtimeStatus", "suspended"}});
    bootOne(suspended);
    ASSERT_EQ(collect(), 0);
    EXPECT_GT(power().resumes, 0U);

    bootOne(suspended);
    for (int pass = 0; pass < 3; ++pass) {
        ASSERT_EQ(collect(GetParam()), 0);
        EXPECT_THAT(openingsOf(*machine_, "/dev/sda"), IsEmpty());
        EXPECT_THAT(machine_->commands(), IsEmpty());
        EXPECT_EQ(power().resumes, 0U);
        EXPECT_TRUE(power().suspended);
        EXPECT_EQ(serials(), Texts{"SLEEPER"});
    }
}

TEST_P(SleepingCure, AStandbyDiskGetsNoCommandButCheckPowerMode)
{
    const json standby = sleeper({{"state", "standby"}});
    bootOne(standby);
    ASSERT_EQ(collect(), 0);
    EXPECT_GT(power().spinUps, 0U);

    bootOne(standby);
    for (int pass = 0; pass < 3; ++pass) {
        ASSERT_EQ(collect(GetParam()), 0);
        EXPECT_EQ(commandsTo(*machine_, "/dev/sda"), Texts{"ata e5"});
        EXPECT_EQ(power().spinUps, 0U);
        EXPECT_EQ(power().condition, "standby");
    }
}

TEST_P(SleepingCure, TheAnswerMayComeInFixedFormat)
{
    json standby = sleeper({{"state", "standby"}});
    standby["ataStatus"] = "fixed";
    bootOne(standby);
    ASSERT_EQ(collect(GetParam()), 0);
    EXPECT_EQ(power().spinUps, 0U);
}

TEST_P(SleepingCure, AnAwakeDiskIsAskedForItsPowerModeFirst)
{
    bootOne(sleeper({{"state", "active"}}));
    ASSERT_EQ(collect(GetParam()), 0);
    const Texts sent = commandsTo(*machine_, "/dev/sda");
    ASSERT_THAT(sent, testing::Contains("ata b0"));
    EXPECT_EQ(sent.front(), "ata e5");
    EXPECT_EQ(predictions(), Numbers{1});
}

TEST_P(SleepingCure, ADiskThatFallsAsleepKeepsItsLastValues)
{
    const json power[] = {{{"state", "standby"}}, {{"state", "standby"}, {"runtimeStatus", "suspended"}}};
    for (const json &asleep : power) {
        SCOPED_TRACE(asleep.dump());
        bootOne(sleeper({{"state", "active"}}));
        const EnduranceTable table(*machine_, "MODELNAME0123456,231,100,80,60,40,20,0\n");
        ASSERT_EQ(collect(GetParam()), 0);
        const HardDiskEntry before = onlyDisk();
        EXPECT_EQ(before.SmartPredict, 1);
        json changed = sleeper(asleep);
        changed["io"] = {{"reads", 7}, {"writes", 7}};
        change(changed);
        const unsigned spinUps = this->power().spinUps;
        ASSERT_EQ(collect(GetParam()), 0);
        expectSameValues(onlyDisk(), before);
        EXPECT_EQ(serials(), Texts{"SLEEPER"});
        ASSERT_EQ(collection().DevNumMib.TotalLifeSpan, 1);
        EXPECT_EQ(collection().pLifeSpanTbl[0].EnduranceRemaining, 4);
        EXPECT_EQ(this->power().spinUps, spinUps);
    }
}

TEST_P(SleepingCure, ADiskWithoutIoIsNotAskedAtAll)
{
    bootOne(sleeper({{"state", "active"}}));
    ASSERT_EQ(collect(), 0);
    ASSERT_EQ(collect(), 0);
    EXPECT_THAT(machine_->commands(), testing::Not(IsEmpty()));

    ASSERT_EQ(collect(GetParam()), 0);
    const HardDiskEntry before = onlyDisk();
    for (int pass = 0; pass < 3; ++pass) {
        ASSERT_EQ(collect(GetParam()), 0);
        EXPECT_THAT(machine_->commands(), IsEmpty());
        EXPECT_THAT(machine_->openings(), IsEmpty());
        expectSameValues(onlyDisk(), before);
        EXPECT_EQ(serials(), Texts{"SLEEPER"});
    }
    machine_->useDisk("/dev/sda", 1, 0);
    ASSERT_EQ(collect(GetParam()), 0);
    EXPECT_THAT(commandsTo(*machine_, "/dev/sda"), testing::Contains("ata b0"));
    machine_->useDisk("/dev/sda", 0, 1);
    ASSERT_EQ(collect(GetParam()), 0);
    EXPECT_THAT(commandsTo(*machine_, "/dev/sda"), testing::Contains("ata b0"));
    ASSERT_EQ(collect(GetParam()), 0);
    EXPECT_THAT(machine_->commands(), IsEmpty());
}

TEST_P(SleepingCure, ADiskThatWasNeverAskedIsListedWithWhatTheKernelKnows)
{
    bootOne(sleeper({{"state", "active"}}));
    ASSERT_EQ(collect(GetParam()), 0);
    const HardDiskEntry awake = onlyDisk();

    bootOne(sleeper({{"state", "standby"}}));
    ASSERT_EQ(collect(GetParam()), 0);
    HardDiskEntry unknown = onlyDisk();
    EXPECT_EQ(unknown.SmartPredict, -1);
    unknown.SmartPredict = awake.SmartPredict;
    expectSameValues(unknown, awake);
    EXPECT_EQ(serials(), Texts{"SLEEPER"});

    machine_->useDisk("/dev/sda", 1, 0); // wakes up
    ASSERT_EQ(collect(GetParam()), 0);
    EXPECT_EQ(predictions(), Numbers{1});
}

TEST_P(SleepingCure, TheSmartModeThatIsSwitchedOnIsAnsweredByADiskWithoutIo)
{
    bootOne(sleeper({{"state", "active"}}));
    ASSERT_EQ(collect(GetParam()), 0);
    EXPECT_EQ(predictions(), Numbers{1});
    Snapshot off;
    ASSERT_EQ(strgGetCurrentInfo(0, off.dat), 0);
    EXPECT_EQ(off.at<StrgHddRec>(TAV_CID_STRG_HDD, 0).SmartStatus, 0);
    g_lastValues.clear();
    Snapshot offFirst;
    ASSERT_EQ(strgGetCurrentInfo(0, offFirst.dat), 0);
    ASSERT_EQ(collect(GetParam()), 0);
    EXPECT_EQ(predictions(), Numbers{1});
}

TEST_P(SleepingCure, AGeometryThatFailedOnceIsReadAtTheNextPass)
{
    json once = sleeper({{"state", "active"}});
    bootOne(once);
    ASSERT_EQ(collect(GetParam()), 0);
    const HardDiskEntry whole = onlyDisk();
    once["faults"] = {{{"on", "geometry"}, {"nth", 1}, {"errno", "EIO"}}};
    bootOne(once);
    g_lastValues.clear();
    ASSERT_EQ(collect(GetParam()), 0);
    EXPECT_NE(onlyDisk().Capacity, whole.Capacity);
    ASSERT_EQ(collect(GetParam()), 0);
    expectSameValues(onlyDisk(), whole);
}

TEST_P(SleepingCure, ADiskThatDoesNotReportItsPowerModeIsAsked)
{
    bootOne(sleeper({{"state", "standby"}, {"reported", false}}));
    ASSERT_EQ(collect(GetParam()), 0);
    EXPECT_EQ(predictions(), Numbers{1});
}

// ---- what only some lines allow ----

class SleepingScsi : public SleepingCure {};

INSTANTIATE_TEST_SUITE_P(Lines, SleepingScsi, testing::Values("sleeping-disks\ndisk-identity", "all"));

TEST_P(SleepingScsi, AScsiDiskIsAskedByRequestSense)
{
    const json sas = {
        {"vendor", "SEAGATE"}, {"model", "SAS"}, {"serial", "SAS-1"}, {"exceptions", {{"predicting", true}}}};
    json standby = sas;
    standby["power"] = {{"state", "standby"}};
    bootOne(standby);
    ASSERT_EQ(collect("disk-identity"), 0);
    EXPECT_GT(power().spinUps, 0U);

    bootOne(standby);
    ASSERT_EQ(collect(GetParam()), 0);
    EXPECT_EQ(commandsTo(*machine_, "/dev/sda"), Texts{"03"});
    EXPECT_EQ(power().spinUps, 0U);
    EXPECT_EQ(predictions(), Numbers{-1});
    EXPECT_EQ(serials(), Texts{"SAS-1"});

    json idle = sas;
    idle["power"] = {{"state", "idle"}};
    bootOne(idle);
    ASSERT_EQ(collect(GetParam()), 0);
    EXPECT_EQ(commandsTo(*machine_, "/dev/sda").front(), "03");
    EXPECT_EQ(predictions(), Numbers{1});
}

// A disk that cannot be asked is asked again at each pass, so that it is seen when it is back.
TEST_P(SleepingScsi, ADeadDiskIsAskedAgain)
{
    json dead = sleeper({{"state", "active"}});
    dead["openError"] = "ENXIO";
    bootOne(dead);
    for (int pass = 0; pass < 2; ++pass) {
        ASSERT_EQ(collect(GetParam()), 0);
        EXPECT_EQ(predictions(), Numbers{-1});
    }
    change(sleeper({{"state", "active"}}));
    ASSERT_EQ(collect(GetParam()), 0);
    EXPECT_EQ(predictions(), Numbers{1});
}

class SleepingByState : public SleepingCure {};

INSTANTIATE_TEST_SUITE_P(Lines, SleepingByState, testing::Values("sleeping-disks\nsmart-state", "all"));

// A verdict that could not be read is asked for some times more, and then no more: the disk may have none.
TEST_P(SleepingByState, AnUnusedDiskWithoutAVerdictIsAskedThreeTimes)
{
    json silent = sleeper({{"state", "active"}});
    silent["smart"] = {{"supported", false}};
    bootOne(silent);
    for (int pass = 0; pass < 3; ++pass) {
        ASSERT_EQ(collect(GetParam()), 0);
        EXPECT_THAT(machine_->commands(), testing::Not(IsEmpty())) << pass;
    }
    ASSERT_EQ(collect(GetParam()), 0);
    EXPECT_THAT(machine_->commands(), IsEmpty());
    EXPECT_EQ(predictions(), Numbers{-1});
}

TEST_P(SleepingByState, AVerdictThatFailedOnceIsReadAtTheNextPass)
{
    json once = sleeper({{"state", "active"}});
    once["faults"] = {{{"on", "smartStatus"}, {"nth", 1}, {"errno", "EIO"}}};
    bootOne(once);
    ASSERT_EQ(collect(GetParam()), 0);
    EXPECT_EQ(predictions(), Numbers{-1});
    ASSERT_EQ(collect(GetParam()), 0);
    EXPECT_EQ(predictions(), Numbers{1});
}

// ---- a day ----

class SleepingDay : public SleepingCure {};

INSTANTIATE_TEST_SUITE_P(Lines, SleepingDay, testing::Values("sleeping-disks", "all"));

TEST_P(SleepingDay, ADayOfPassesWakesNoDiskAndLetsIdleDisksSleep)
{
    constexpr int kEach = 8;
    constexpr int kMinutes = 1440;
    json asleep = json::array();
    json idle = json::array();
    for (int i = 0; i < kEach; ++i) {
        const std::string number = std::to_string(i);
        asleep.push_back(sleeper({{"state", "standby"}, {"standbyTimer", 600}}, i, "ASLEEP-" + number));
        idle.push_back(sleeper({{"state", "active"}, {"standbyTimer", 600}}, i, "IDLE-" + number));
    }
    boot(machine({host(0, "ahci", asleep), host(1, "ahci", idle)}));
    for (int minute = 0; minute < kMinutes; ++minute) {
        ASSERT_EQ(collect(GetParam()), 0);
        const Numbers found = predictions();
        ASSERT_THAT(found, SizeIs(2 * kEach));
        for (int i = 0; i < kEach; ++i) {
            ASSERT_EQ(found[static_cast<size_t>(i)], -1); // never asked, and never reported as failing
            ASSERT_EQ(found[static_cast<size_t>(kEach + i)], 1);
        }
        machine_->advanceClock(60);
        if (minute == 11) {
            ASSERT_EQ(machine_->power("/dev/sdp").condition, "standby");
        }
    }
    for (int i = 0; i < 2 * kEach; ++i) {
        const std::string node = std::string("/dev/sd") + static_cast<char>('a' + i);
        EXPECT_EQ(machine_->power(node).spinUps, 0U) << node;
        EXPECT_EQ(machine_->power(node).condition, "standby") << node;
    }
}

TEST(SleepingDisks, WithoutTheLineAnIdleDiskNeverSleepsAndASleepingOneIsWoken)
{
    struct Plain : Inventory {
        void TestBody() override
        {
            json asleep = disk(0, "ASLEEP");
            asleep["power"] = {{"state", "standby"}, {"standbyTimer", 600}};
            json idle = disk(1, "IDLE");
            idle["power"] = {{"state", "active"}, {"standbyTimer", 600}};
            boot(machine({host(0, "ahci", {asleep, idle})}));
            for (int minute = 0; minute < 30; ++minute) {
                ASSERT_EQ(collect(), 0);
                machine_->advanceClock(60);
            }
            EXPECT_EQ(machine_->power("/dev/sda").spinUps, 1U);
            EXPECT_NE(machine_->power("/dev/sda").condition, "standby");
            EXPECT_NE(machine_->power("/dev/sdb").condition, "standby");
        }
    } plain;
    plain.TestBody();
}

} // namespace

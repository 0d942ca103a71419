// SPDX-License-Identifier: Apache-2.0
// Disks that are no ATA disks or cannot be asked, with the line "disk-identity" in options.inf, and without it.
#include "collect/devices/kernel_disk.h"
#include "support/inventory_fixture.h"
#include "support/snapshot_fixture.h"

#include <algorithm>
#include <cerrno>

using inventory::disk;
using inventory::host;
using inventory::machine;
using nlohmann::json;
using Texts = std::vector<std::string>;
using Numbers = std::vector<int>;

namespace {

class DiskIdentityCure : public Inventory, public testing::WithParamInterface<const char *> {
protected:
    // A machine of a healthy disk, this one and another healthy one.
    void bootBetween(json middle)
    {
        middle["id"] = 1;
        boot(machine({host(0, "ahci", {disk(0, "BEFORE"), middle, disk(2, "BEHIND")})}));
    }
    // What is found out about it.
    std::string serialOfMiddle()
    {
        EXPECT_EQ(collect(GetParam()), 0);
        const Texts all = serials();
        EXPECT_EQ(all.size(), 3U);
        EXPECT_EQ(all.front(), "BEFORE");
        EXPECT_EQ(all.back(), "BEHIND");
        return all.size() == 3 ? all[1] : "";
    }
    size_t commandsTo(const std::string &node) const
    {
        const auto commands = machine_->commands();
        return static_cast<size_t>(std::count_if(commands.begin(), commands.end(),
                                                 [&](const sim::Command &command) { return command.device == node; }));
    }
    bool wasNamed() const
    {
        const auto records = trace_.records();
        return std::any_of(records.begin(), records.end(), [](const TraceRecord &record) {
            return record.level == kFailure && record.text.find("[/dev/sdb] at 0:0:1:0 cannot be asked") == 0;
        });
    }
};

INSTANTIATE_TEST_SUITE_P(Lines, DiskIdentityCure,
                         testing::Values("disk-identity", "disk-identity\ndisk-names", "disk-identity\nside-by-side",
                                         "disk-identity\nsmart-state", "disk-names\ndisk-identity\nside-by-side",
                                         "all"));

const json kSas = {{"vendor", "SEAGATE"}, {"model", "SAS"}, {"serial", "SAS-1"}};

TEST_P(DiskIdentityCure, ADiskThatIsNoAtaDiskIsListedWithItsSerialNumberAndState)
{
    json failing = kSas;
    failing["exceptions"] = {{"predicting", true}};
    bootBetween(failing);
    EXPECT_EQ(collect(), -1);

    EXPECT_EQ(serialOfMiddle(), "SAS-1");
    EXPECT_EQ(predictions(), (Numbers{0, 1, 0}));
    EXPECT_FALSE(wasNamed());
}

TEST_P(DiskIdentityCure, ADeadDiskIsListedAndTheOthersAreAsked)
{
    for (const char *const error : {"ENXIO", "EIO"}) {
        SCOPED_TRACE(error);
        json dead = disk(1, "DEAD");
        bootBetween(dead);
        ASSERT_EQ(collect(), 0);
        const HardDiskEntry alive = collection().pHDDevTbl[1];
        dead["openError"] = error;
        bootBetween(dead);
        EXPECT_EQ(collect(), -1);

        EXPECT_EQ(serialOfMiddle(), "DEAD");
        EXPECT_EQ(predictions(), (Numbers{0, -1, 0}));
        EXPECT_TRUE(wasNamed());
        const HardDiskEntry &shown = collection().pHDDevTbl[1];
        EXPECT_EQ(shown.Capacity, alive.Capacity);
        EXPECT_EQ(shown.CylindersPerUnit, alive.CylindersPerUnit);
        EXPECT_EQ(shown.TracksPerCylinder, alive.TracksPerCylinder);
        EXPECT_EQ(shown.SectorsPerTrack, alive.SectorsPerTrack);
        EXPECT_EQ(commandsTo("/dev/sdb"), 0U);
        EXPECT_GT(commandsTo("/dev/sdc"), 0U);
    }
}

TEST_P(DiskIdentityCure, ADiskWhoseEveryRequestFailsIsUnreadable)
{
    for (const char *const error : {"EIO", "ENXIO"}) {
        json failing = disk(1, "FAILS");
        failing["faults"] = {{{"on", "identity"}, {"errno", error}}, {{"on", "ata"}, {"errno", error}}};
        bootBetween(failing);
        EXPECT_EQ(collect(), -1);

        EXPECT_EQ(serialOfMiddle(), "FAILS");
        EXPECT_EQ(predictions(), (Numbers{0, -1, 0}));
        EXPECT_TRUE(wasNamed());
    }
}

TEST_P(DiskIdentityCure, ADiskWithoutAGeometryIsUnreadable)
{
    json odd = disk(1, "ODD");
    odd["faults"] = {{{"on", "geometry"}, {"errno", "EINVAL"}}, {{"on", "size"}, {"errno", "EINVAL"}}};
    bootBetween(odd);
    EXPECT_EQ(collect(), -1);

    EXPECT_EQ(serialOfMiddle(), "ODD");
    EXPECT_EQ(predictions(), (Numbers{0, -1, 0}));
    EXPECT_TRUE(wasNamed());
}

TEST_P(DiskIdentityCure, TheSerialNumberIsThatOfTheFirstSourceThatHasOne)
{
    json dead = disk(1, "ANSWERED");
    dead["vpdPages"] = {{"80", "0080000450473830"}}; // "PG80"
    bootBetween(dead);
    EXPECT_EQ(serialOfMiddle(), "ANSWERED");
    dead["openError"] = "ENXIO";
    bootBetween(dead);
    EXPECT_EQ(serialOfMiddle(), "PG80");
    dead["vpdPages"] = {{"80", nullptr}};
    dead["wwid"] = "naa.5000c50012345678";
    bootBetween(dead);
    EXPECT_EQ(serialOfMiddle(), "ANSWERED"); // of page 89h, which has the IDENTIFY data
    dead["vpdPages"] = {{"80", nullptr}, {"89", nullptr}};
    bootBetween(dead);
    EXPECT_EQ(serialOfMiddle(), "naa.5000c50012345678");
    dead["wwid"] = nullptr;
    bootBetween(dead);
    EXPECT_EQ(serialOfMiddle(), "");
}

TEST_P(DiskIdentityCure, TheSerialNumberStaysTheSameWhenTheDiskDies)
{
    json disk = {{"ata", true}, {"serial", "12345678901234567890"}, {"identifyWords", {{"20", 3}}}};
    bootBetween(disk);
    const std::string alive = serialOfMiddle();
    disk["openError"] = "ENXIO";
    bootBetween(disk);
    EXPECT_EQ(serialOfMiddle(), alive);
    EXPECT_EQ(alive, "12345678901234567890");
}

TEST_P(DiskIdentityCure, ADeadDiskKeepsItsWearRecord)
{
    json dead = disk(1, "WORN");
    dead["model"] = "MODELNAME0123456";
    dead["openError"] = "ENXIO";
    bootBetween(dead);
    const EnduranceTable table(*machine_, "MODELNAME0123456,231,100,80,60,40,20,0\n");
    EXPECT_EQ(serialOfMiddle(), "WORN");
    ASSERT_EQ(collection().DevNumMib.TotalLifeSpan, 1);
    EXPECT_EQ(collection().pLifeSpanTbl[0].HDDIndex, 2);
    EXPECT_EQ(collection().pLifeSpanTbl[0].EnduranceRemaining, -1);
    EXPECT_EQ(commandsTo("/dev/sdb"), 0U);
}

TEST_P(DiskIdentityCure, ADiskWithoutANodeIsListed)
{
    bootBetween(disk(1, "BARE"));
    machine_->remove("/dev/sdb");
    machine_->remove("/sys/bus/scsi/devices/0:0:1:0/block");
    EXPECT_EQ(serialOfMiddle(), "BARE");
    EXPECT_EQ(predictions(), (Numbers{0, -1, 0}));
    EXPECT_EQ(collection().pHDDevTbl[1].Capacity, 0U);
}

class KernelDisk : public Inventory {};

TEST_F(KernelDisk, SizeIsThatOfItsBlockDirectory)
{
    json large = disk(0, "LARGE");
    large["sectors"] = 4294967296;
    large["sectorSize"] = 4096;
    boot(machine({host(0, "ahci", {large})}));
    const KernelSize size = readKernelSize({0, 0, 0, 0}, "/dev/sda");
    EXPECT_EQ(size.sectors, 4294967296U);
    EXPECT_EQ(size.sectorSize, 4096);
    EXPECT_EQ(readKernelSize({0, 0, 1, 0}, "/dev/sda").sectors, 0U);
    EXPECT_EQ(readKernelSize({0, 0, 0, 0}, "").sectors, 0U);
}

} // namespace

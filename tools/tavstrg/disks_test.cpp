// SPDX-License-Identifier: Apache-2.0
#include "tavstrg/disks.h"

#include "tavstrg/disk_text.h"

#include "runtime/field_text.h"
#include "support/tool_fixture.h"

#include <gmock/gmock.h>
#include <nlohmann/json.hpp>

#include <sstream>

namespace {

using namespace tavstrg::disks;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;
using tool::defaultDiskColumns;
using tool::DiskTable;
using tool::diskTable;
using tool::findDiskColumn;
using tool::testing_support::Finished;

Disk diskOf(const char *name, HealthState state = HealthState::good)
{
    Disk disk{};
    tavstrg::copyText(disk.name, name);
    tavstrg::copyText(disk.paths[0], name);
    tavstrg::copyText(disk.id, (std::string("naa.5000c500000000") + name).c_str());
    tavstrg::copyText(disk.model, "NORDWIND NW1000-EXTENDED-0123456789-AND-MORE");
    tavstrg::copyText(disk.serial, (std::string("SERIAL-NUMBER-OF-") + name).c_str());
    tavstrg::copyText(disk.address, "10:0:24:0");
    tavstrg::copyText(disk.bay, "10:0:30:0 Slot 24");
    disk.pathCount = 1;
    disk.transport = Transport::sas;
    disk.sizeBytes.set(4000787030016);
    disk.readings.temperatureCelsius.set(34);
    disk.readings.enduranceUsedPercent.set(255);
    disk.readings.powerOnHours.set(43800);
    setHealth(disk.health, state, "exceptions log", "predicts its failure: hardware, general (code 5D/10)");
    return disk;
}

size_t widest(const std::string &text)
{
    size_t most = 0;
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
        most = std::max(most, line.size());
    }
    return most;
}

TEST(DiskTable, DefaultFits80ColumnsAndTheWideOne120)
{
    const std::vector<Disk> disks{diskOf("sda"), diskOf("nvme10n1", HealthState::unreadable)};
    EXPECT_LE(widest(diskTable(disks, {defaultDiskColumns(false), tool::kTableWidth}, {})), 80U);
    const std::string wide = diskTable(disks, {defaultDiskColumns(true), tool::kWideTableWidth}, {});
    EXPECT_LE(widest(wide), 120U);
    EXPECT_THAT(wide, HasSubstr("unreadable 255%   34 43800"));
}

TEST(DiskTable, WhatIsCutStillTellsDisksApart)
{
    const std::string wide = diskTable({diskOf("sda")}, {defaultDiskColumns(true), tool::kWideTableWidth}, {});
    EXPECT_THAT(wide, HasSubstr("Slot 24 "));
    EXPECT_THAT(wide, HasSubstr("-OF-sda "));
    EXPECT_THAT(wide, HasSubstr(" predicts its failur~\n"));
}

TEST(DiskTable, ChosenColumnsAreWhole)
{
    const DiskTable table{{findDiskColumn("node"), findDiskColumn("Model"), findDiskColumn("MEDIA-ERR")}, 0};
    EXPECT_EQ(diskTable({diskOf("sda")}, table, {}), "NODE MODEL                                        MEDIA-ERR\n"
                                                     "sda  NORDWIND NW1000-EXTENDED-0123456789-AND-MORE\n");
}

TEST(DiskTable, FailingDiskIsMarkedAmongMany)
{
    std::vector<Disk> disks(128, diskOf("sda"));
    disks[77] = diskOf("sdbz", HealthState::failing);
    disks[78] = diskOf("sdca", HealthState::warning);
    const std::string text = diskTable(disks, {defaultDiskColumns(false), tool::kTableWidth}, {});
    EXPECT_THAT(text, HasSubstr("\n!! sdbz "));
    EXPECT_THAT(text, HasSubstr("\n!  sdca "));
    EXPECT_EQ(std::count(text.begin(), text.end(), '!'), 3);
}

TEST(DiskTable, WithoutHeaderOnlyTheDisks)
{
    EXPECT_EQ(diskTable({diskOf("sda")}, {{findDiskColumn("NODE"), findDiskColumn("TRAN")}, 0, false}, {}),
              "sda sas\n");
}

TEST(DiskOrder, NumbersByValueAndAbsentOnesLast)
{
    std::vector<Disk> disks{diskOf("sda"), diskOf("sdb"), diskOf("sdc")};
    disks[0].readings.enduranceUsedPercent = {};
    disks[1].readings.enduranceUsedPercent.set(100);
    disks[2].readings.enduranceUsedPercent.set(79);
    tool::sortDisks(disks, *findDiskColumn("used"));
    EXPECT_STREQ(disks[0].name, "sdc");
    EXPECT_STREQ(disks[1].name, "sdb");
    EXPECT_STREQ(disks[2].name, "sda");
    tool::sortDisks(disks, *findDiskColumn("node"));
    EXPECT_STREQ(disks[0].name, "sda");
}

TEST(DiskCsv, QuotesTextsAndHasPlainNumbers)
{
    Disk disk = diskOf("sda");
    tavstrg::copyText(disk.model, "A \"B\", C");
    EXPECT_EQ(tool::diskCsv({disk}, {findDiskColumn("MODEL"), findDiskColumn("SIZE"), findDiskColumn("USED")}, true),
              "MODEL,SIZE,USED\n\"A \"\"B\"\", C\",4000787030016,255\n");
}

TEST(DiskHealth, StatusIsThatOfTheWorstDisk)
{
    EXPECT_EQ(tool::statusOfDisks({}), 0);
    EXPECT_EQ(tool::statusOfDisks({diskOf("sda"), diskOf("sdb", HealthState::off), diskOf("sdc", HealthState::asleep)}),
              0);
    EXPECT_EQ(tool::statusOfDisks({diskOf("sda", HealthState::warning), diskOf("sdb")}), 3);
    EXPECT_EQ(tool::statusOfDisks({diskOf("sda", HealthState::unreadable), diskOf("sdb", HealthState::warning)}), 4);
}

TEST(FindDisk, ByIdNodePathAndSerialNumberThatIsUnique)
{
    std::vector<Disk> disks{diskOf("sda"), diskOf("sdb")};
    tavstrg::copyText(disks[1].paths[1], "sdz");
    disks[1].pathCount = 2;
    EXPECT_EQ(tool::findDisk(disks, "naa.5000c500000000sdb"), &disks[1]);
    EXPECT_EQ(tool::findDisk(disks, "/dev/sda"), &disks[0]);
    EXPECT_EQ(tool::findDisk(disks, "sdz"), &disks[1]);
    EXPECT_EQ(tool::findDisk(disks, "SERIAL-NUMBER-OF-sda"), &disks[0]);
    EXPECT_EQ(tool::findDisk(disks, "sdc"), nullptr);
    tavstrg::copyText(disks[1].serial, disks[0].serial);
    EXPECT_EQ(tool::findDisk(disks, "SERIAL-NUMBER-OF-sda"), nullptr);
}

// ---- the built tool ----

class Disks : public tool::testing_support::ToolTest {
protected:
    Finished runFailing(std::vector<std::string> words) const
    {
        words.insert(words.begin(), {"--machine", TAV_SOURCE_DIR "/examples/machines/failing.json"});
        return run(words);
    }
};

TEST_F(Disks, ListsEveryDiskAndWhyItNeedsAttention)
{
    const Finished finished = runFailing({"disks"});
    EXPECT_EQ(finished.status, 0);
    EXPECT_EQ(finished.err, "");
    EXPECT_THAT(finished.out, HasSubstr("\n!! sdb "));
    EXPECT_THAT(finished.out, HasSubstr("!! sdb failing: predicts its failure: attribute 5 is 4, threshold 10; "));
    EXPECT_THAT(finished.out, HasSubstr("17 disks: 3 failing, 1 unreadable, "));
    EXPECT_TRUE(leftNothing(finished));
}

TEST_F(Disks, ScriptsGetColumnsWithoutAnythingElse)
{
    const Finished finished =
        runFailing({"disks", "--no-header", "--failing", "-o", "node,health", "--sort", "health"});
    EXPECT_EQ(finished.out, "!! sdb failing\n!! sdi failing\n!! sdn failing\n!! sde unreadable\n");
    EXPECT_EQ(runFailing({"disks", "--csv", "--failing", "-o", "NODE,HEALTH"}).out,
              "NODE,HEALTH\nsdb,failing\nsde,unreadable\nsdi,failing\nsdn,failing\n");
}

TEST_F(Disks, HealthIsTheExitStatus)
{
    const Finished failing = runFailing({"health"});
    EXPECT_EQ(failing.status, 4);
    EXPECT_EQ(failing.err, "");
    EXPECT_THAT(failing.out, StartsWith("!! sdb failing"));
    EXPECT_EQ(runSmall({"health"}).out, "1 disk: 1 good\n");
    const Finished asJson = runFailing({"--json", "health"});
    EXPECT_EQ(asJson.status, 4);
    EXPECT_EQ(asJson.err, "");
    EXPECT_EQ(nlohmann::json::parse(asJson.out)["disks"].size(), 4U);
}

TEST_F(Disks, OneDiskWithItsAttributes)
{
    const Finished finished = runFailing({"disk", "/dev/sdb"});
    EXPECT_EQ(finished.status, 0);
    EXPECT_THAT(finished.out, HasSubstr("serial number          NWK7713101\n"));
    EXPECT_THAT(finished.out, HasSubstr("\n    5        4      4         10  "));
    const Finished unknown = runFailing({"disk", "NWK7713109"});
    EXPECT_EQ(unknown.status, 1);
    EXPECT_THAT(unknown.err, StartsWith("tavstrg: disk: no disk \"NWK7713109\"; did you mean "));
}

TEST_F(Disks, BookTellsWhatChangedAndSinceWhen)
{
    const std::string book = (directory_ / "book").string();
    EXPECT_THAT(runSmall({"disks", "--book", book}).out, Not(HasSubstr("Changed")));
    write("small.json", R"({"hosts": [{"driver": "ahci", "devices": [{"ata": true, "model": "SMALL DISK",
        "serial": "SER-1", "smart": {"failing": true}}, {"id": 1, "ata": true, "model": "M", "serial": "SER-2"}]}]})");
    const Finished finished = runSmall({"disks", "--book", book});
    EXPECT_THAT(finished.out, HasSubstr("Changed: sda, serial SER-1: failing, predicts its failure: "));
    EXPECT_THAT(finished.out, HasSubstr("Changed: sdb, serial SER-2: added.\n"));
    EXPECT_THAT(runSmall({"disks", "--book", book}).out, Not(HasSubstr("Changed")));
    EXPECT_THAT(runSmall({"disk", "sda", "--book", book}).out, HasSubstr("\n  first seen "));
    write("book", "damaged");
    EXPECT_THAT(runSmall({"disks", "--book", book}).out, HasSubstr("was damaged"));
    EXPECT_TRUE(std::filesystem::exists(book + ".damaged"));
}

// The kernel knows the bridge; the disk tells its own names only while it is asked.
TEST_F(Disks, SleepingDiskBehindAUsbBridgeKeepsItsIdentityInTheBook)
{
    const auto describe = [this](const char *power) {
        write("bridge.json", std::string(R"({"hosts": [{"driver": "usb-storage", "transport": "usb",
            "usb": {"vendorId": "1234", "productId": "5678", "serial": "BRIDGE-7"}, "devices": [{"sat": true, "vendor": "DOCK",
            "model": "NORDWIND NW1000 BEHIND A BRIDGE", "serial": "NW-1", "vpdPages": {"80": null, "83": null},
            "power": {"state": ")") +
                                 power + R"("}}]}]})");
    };
    const std::string machine = (directory_ / "bridge.json").string();
    const std::vector<std::string> words = {
        "--machine", machine, "disks", "--book", (directory_ / "book").string(), "-o", "ID,SERIAL,HEALTH"};
    describe("active");
    const std::string awake = run(words).out;
    EXPECT_THAT(awake, HasSubstr("NW1000_BEHIND_A_BRIDGE.NW-1"));
    describe("standby");
    const Finished asleep = run(words);
    EXPECT_THAT(asleep.out, HasSubstr("NW1000_BEHIND_A_BRIDGE.NW-1"));
    EXPECT_THAT(asleep.out, HasSubstr("asleep"));
    EXPECT_EQ(asleep.err, "") << "nothing has changed";
    describe("active");
    EXPECT_EQ(run(words).out, awake);
    const Finished withoutBook = run({"--machine", machine, "disks", "-o", "ID"});
    EXPECT_THAT(withoutBook.out, HasSubstr("NW1000_BEHIND_A_BRIDGE.NW-1"));
}

TEST_F(Disks, ClassOfEveryDiskNeedsItsLine)
{
    const Finished off = runSmall({"enum", "Disk"});
    EXPECT_EQ(off.status, 1);
    EXPECT_EQ(off.err,
              "tavstrg: TAV_StorageDisk: Generic Failure!! (status 1): this class needs the line every-disk in "
              "options.inf\n");
    const std::string machine = write("every.json", R"({"hosts": [{"driver": "ahci", "devices": [{"ata": true,
        "model": "MODEL", "serial": "S-1"}]}], "files": {"options.inf": "every-disk", "storage.inf": ["[Management Port]",
        "ahci", "[Diagnostic Port]", "ahci"]}})");
    const Finished one = run({"--machine", machine, "get", "disk", "serial.ATA_MODEL.S-1"});
    EXPECT_EQ(one.err, "");
    EXPECT_THAT(one.out, StartsWith("TAV_StorageDisk\n"));
    EXPECT_THAT(one.out, HasSubstr("  HealthState         1 (Good)\n"));
    EXPECT_THAT(one.out, HasSubstr("  HardDiskIndex       1\n"));
    EXPECT_THAT(one.out, Not(HasSubstr("EnduranceUsedPercent"))) << "what a disk does not report is not shown";
    EXPECT_EQ(run({"get", "Disk"}).err.find("tavstrg: get: TAV_StorageDisk needs a DiskID"), 0U);
    EXPECT_EQ(run({"--machine", machine, "get", "Disk", "none"}).err,
              "tavstrg: TAV_StorageDisk: NotFound DiskID (status 6)\n");
}

TEST_F(Disks, WrongColumnsAreWrongUsage)
{
    for (const auto &words : {std::vector<std::string>{"disks", "-o", "NODE,HEALHT"}, {"disks", "--sort", "HEALHT"}}) {
        const Finished finished = run(words);
        EXPECT_EQ(finished.status, 2);
        EXPECT_THAT(finished.err, HasSubstr("unknown column \"HEALHT\"; did you mean HEALTH?"));
    }
}

TEST_F(Disks, NotPermittedIsSaidAndHealthIsThenAFailure)
{
    const std::string machine = write("closed.json", R"({"hosts": [{"driver": "ahci", "devices": [
        {"ata": true, "model": "M", "serial": "S", "openError": "EACCES"}]}]})");
    const Finished list = run({"--machine", machine, "disks"});
    EXPECT_EQ(list.status, 0);
    EXPECT_THAT(list.out, HasSubstr("1 disk could not be asked: that needs root."));
    const Finished health = run({"--machine", machine, "health"});
    EXPECT_EQ(health.status, 1);
    EXPECT_EQ(health.out, "");
    EXPECT_EQ(health.err, "tavstrg: health: 1 disk could not be asked: that needs root.\n");
    const Finished csv = run({"--machine", machine, "disks", "--csv", "-o", "NODE"});
    EXPECT_EQ(csv.status, 0);
    EXPECT_EQ(csv.out, "NODE\nsda\n");
    EXPECT_EQ(csv.err, "tavstrg: 1 disk could not be asked: that needs root.\n");
}

TEST_F(Disks, WithoutSysfsAndWithoutDisksItSaysSo)
{
    const Finished none = run({"--machine", write("none.json", R"({"kernel": "2.4.20"})"), "disks"});
    EXPECT_EQ(none.status, 0);
    EXPECT_THAT(none.out, StartsWith("No disk can be seen: /sys/block cannot be read"));
    EXPECT_EQ(run({"--machine", (directory_ / "none.json").string(), "health"}).status, 1);
    const Finished drive =
        run({"--machine", write("drive.json", R"({"hosts": [{"driver": "ahci", "devices": [{"type": "cdrom"}]}]})"),
             "disks"});
    EXPECT_THAT(drive.out, StartsWith("This machine has no disk"));
}

} // namespace

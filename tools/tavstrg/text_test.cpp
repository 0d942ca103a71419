// SPDX-License-Identifier: Apache-2.0
#include "tavstrg/text.h"

#include "support/tool_instances.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <regex>
#include <sstream>

namespace {

using namespace tool;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

// A machine with one of everything that is printed differently.
Inventory sample()
{
    Inventory inventory;
    inventory.machine = "sample.json";

    Controller first;
    first.index = 1;
    first.model = "SCSI Controller";
    first.driver = "ahci";
    first.driverVersion = "Not Supported";
    first.host = 4;
    Device disk;
    disk.index = 1;
    disk.deviceTypeIndex = 1;
    disk.controllerIndex = 1;
    disk.bus = 0;
    disk.targetId = 3;
    disk.lun = 1;
    disk.vendor = "ATA     ";
    disk.model = "EXAMPLE 1000    ";
    disk.firmwareRevision = "FW01";
    disk.serialNumber = "SER1";
    disk.disk = HardDisk{1, 0, 1, 121601, 255, 63, 953869, 1, LifeSpan{1, 2}};
    disk.host = 4;
    disk.node = "sdb";
    Device cdrom;
    cdrom.index = 2;
    cdrom.deviceType = 1;
    cdrom.deviceTypeIndex = 1;
    cdrom.controllerIndex = 1;
    cdrom.vendor = "DISCO";
    cdrom.model = "RW";
    first.devices = {disk, cdrom};

    Controller second;
    second.index = 2;
    second.interfaceType = 1;
    second.model = "IDE Controller(ide)";
    second.interruptNumber = 14;
    Device old;
    old.interfaceType = 1;
    old.index = 1;
    old.deviceType = 2;
    old.deviceTypeIndex = 2;
    old.controllerIndex = 2;
    old.ideConfiguration = 3;
    old.model = "OLD";
    old.firmwareRevision = "Not Supported";
    old.serialNumber = "Unknown";
    old.disk = HardDisk{2, 1, 1, 10, 2, 8, 40, -1, std::nullopt};
    second.devices = {old};
    inventory.controllers = {first, second};

    Device lost = cdrom;
    lost.index = 3;
    lost.deviceType = 2;
    lost.controllerIndex = kNoController;
    lost.vendor = "";
    lost.model = "";
    inventory.devicesWithoutController = {lost};
    inventory.totals = {2, 3, 1, 2, 1, 1, 0, 0};
    inventory.monitoring = {60, 10, 3600, 60, 1, false};
    return inventory;
}

TEST(InventoryText, IsATreeFromTheMachineToItsDevicesAndTheTotals)
{
    EXPECT_EQ(inventoryText(sample(), {}),
              "Storage of the simulated machine sample.json: 2 controllers, 4 devices\n"
              "|-- Controller 1: SCSI Controller, host 4, driver ahci, interrupt unknown\n"
              "|   |-- !! 4:0:3:1  sdb  hard disk 1     931.5 GiB  FAILURE PREDICTED   ATA EXAMPLE 1000, serial SER1, "
              "firmware FW01, life span level 2 of 5, little endurance left\n"
              "|   `--    0:0:0         CD-ROM drive 1  DISCO RW\n"
              "|-- Controller 2: IDE Controller(ide), no driver, interrupt 14\n"
              "|   `-- !  slave         hard disk 2     40 MiB     SMART not readable  OLD\n"
              "`-- Devices without a controller\n"
              "    `--    0:0:0         tape drive 1\n"
              "\n"
              "Totals\n"
              "  controllers       2\n"
              "  SCSI devices      3\n"
              "  IDE devices       1\n"
              "  hard disks        2\n"
              "  CD-ROM drives     1\n"
              "  tape drives       1\n"
              "  optical memories  0\n"
              "  other devices     0\n"
              "\n"
              "Health: 1 of 2 disks predicts failure: sdb (4:0:3:1, serial SER1)\n"
              "        SMART status of 1 disk not readable: hard disk 2 (slave)\n"
              "        1 drive with little endurance left (level 2 of 5): sdb (4:0:3:1, serial SER1)\n");
}

// What an operator types at night: the lines with FAIL must say which disk it is.
TEST(InventoryText, ALineWithAFailureNamesItsDisk)
{
    std::istringstream lines(inventoryText(sample(), {}));
    size_t found = 0;
    for (std::string line; std::getline(lines, line);) {
        if (line.find("FAIL") != std::string::npos) {
            ++found;
            EXPECT_THAT(line, testing::AllOf(HasSubstr("sdb"), HasSubstr("4:0:3:1"), HasSubstr("SER1")));
        }
    }
    EXPECT_EQ(found, 1U);
}

TEST(InventoryText, EachDiskIsOneLine)
{
    Inventory inventory = sample();
    const Device disk = inventory.controllers[0].devices[0];
    inventory.controllers[0].devices.assign(200, disk);
    const std::string text = inventoryText(inventory, {});
    EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), 1 + 1 + 200 + 2 + 2 + 1 + 9 + 1 + 3);
}

TEST(InventoryText, ColourMarksTheLinesThatNeedAttentionAndChangesNoText)
{
    TextStyle style;
    style.colour = true;
    const std::string text = inventoryText(sample(), style);
    EXPECT_THAT(text, HasSubstr("|   |-- \x1b[1;31m!! 4:0:3:1  sdb  hard disk 1"));
    EXPECT_THAT(
        text,
        HasSubstr("|   `-- \x1b[33m!  slave         hard disk 2     40 MiB     SMART not readable  OLD\x1b[0m\n"));
    EXPECT_THAT(text, HasSubstr("\n\x1b[1;31mHealth: 1 of 2 disks"));
    EXPECT_EQ(std::regex_replace(text, std::regex("\x1b\\[[0-9;]*m"), ""), inventoryText(sample(), {}));
}

TEST(InventoryText, ColourTakesNoRoomOfALine)
{
    TextStyle plain;
    plain.width = 60;
    TextStyle style = plain;
    style.colour = true;
    EXPECT_EQ(std::regex_replace(inventoryText(sample(), style), std::regex("\x1b\\[[0-9;]*m"), ""),
              inventoryText(sample(), plain));
}

TEST(InventoryText, AllListsHaveTheSameColumns)
{
    Inventory inventory = sample();
    inventory.controllers[0].devices[1].targetId = 10;
    const std::string text = inventoryText(inventory, {});
    EXPECT_THAT(text, HasSubstr("|-- !! 4:0:3:1  sdb  hard disk 1 "));
    EXPECT_THAT(text, HasSubstr("`--    0:10:0        CD-ROM drive 1 "));
    EXPECT_THAT(text, HasSubstr("`--    0:0:0         tape drive 1\n"));
}

TEST(InventoryText, VerboseAddsGeometryVersionsNumbersAndMonitoring)
{
    TextStyle style;
    style.verbose = true;
    const std::string text = inventoryText(sample(), style);
    EXPECT_THAT(text, HasSubstr("|   |   interface SCSI, driver version unknown\n"));
    EXPECT_THAT(text, HasSubstr("|   |       geometry: 121601 cylinders, 255 heads, 63 sectors per track\n"
                                "|   |       SCSI device 1\n"));
    EXPECT_THAT(text, HasSubstr("IDE device 1\n"));
    EXPECT_THAT(text, HasSubstr("Monitoring\n"
                                "  thread  not running\n"
                                "  cycle   60 s (10 to 3600, default 60)\n"
                                "  SMART   disks are asked\n"));
    EXPECT_THAT(inventoryText(sample(), {}), Not(HasSubstr("geometry")));
}

TEST(InventoryText, BoxCharactersWhereTheTerminalHasThem)
{
    TextStyle style;
    style.utf8 = true;
    const std::string text = inventoryText(sample(), style);
    EXPECT_THAT(text, HasSubstr("├── Controller 1"));
    EXPECT_THAT(text, HasSubstr("│   └──    0:0:0         CD-ROM"));
    EXPECT_THAT(text, Not(HasSubstr("|--")));
}

TEST(InventoryText, NoLineIsWiderThanTheTerminalAndNothingIsLost)
{
    TextStyle style;
    style.width = 60;
    const std::string text = inventoryText(sample(), style);
    std::istringstream lines(text);
    std::string line;
    while (std::getline(lines, line)) {
        EXPECT_LE(line.size(), 60U) << line;
    }
    EXPECT_THAT(text, HasSubstr("|   |-- !! 4:0:3:1  sdb  hard disk 1     931.5 GiB  FAILURE\n"
                                "|   |           PREDICTED\n"
                                "|   |           ATA EXAMPLE 1000, serial SER1,\n"));
    style.width = 80;
    EXPECT_THAT(inventoryText(sample(), style),
                HasSubstr("|   |-- !! 4:0:3:1  sdb  hard disk 1     931.5 GiB  FAILURE PREDICTED\n"
                          "|   |           ATA EXAMPLE 1000, serial SER1, firmware FW01,\n"))
        << "the name begins on a line of its own where it does not fit";

    const auto words = [](const std::string &of) {
        std::istringstream in(of);
        std::vector<std::string> all;
        for (std::string word; in >> word;) {
            if (word != "|" && word != "|--" && word != "`--") {
                all.push_back(word);
            }
        }
        return all;
    };
    EXPECT_EQ(words(text), words(inventoryText(sample(), {})));
}

TEST(InventoryText, ATinyTerminalStillGetsAllWords)
{
    TextStyle style;
    style.width = 1;
    EXPECT_THAT(inventoryText(sample(), style), HasSubstr("FW01"));
}

TEST(InventoryText, CountsNothingOfAnEmptyMachine)
{
    EXPECT_THAT(inventoryText({}, {}), StartsWith("Storage of this machine: 0 controllers, 0 devices\n\nTotals\n"));
}

TEST(InventoryText, ADiskThatLostItsDeviceIsShown)
{
    Inventory inventory;
    inventory.disksWithoutDevice = {HardDisk{4, 0, 9, 1, 1, 1, 2048, 0, std::nullopt}};
    EXPECT_THAT(inventoryText(inventory, {}),
                HasSubstr("`-- Hard disks without a device (the configuration changed meanwhile)\n"
                          "    `-- hard disk 4  2.0 GiB  SMART no failure reported\n"));
}

TEST(InventoryText, EscapesTextsOfDevices)
{
    Inventory inventory = sample();
    inventory.controllers[0].devices[0].serialNumber = "\x1b]0;owned\x07";
    EXPECT_THAT(inventoryText(inventory, {}), HasSubstr("serial \\x1b]0;owned\\x07"));
}

TEST(InstancesText, AlignsValuesAndSeparatesInstances)
{
    using testing_support::instance;
    const std::vector<broker::Instance> two = {instance("TAV_StorageTape", {{"Index", "1"}, {"InterfaceType", 0}}),
                                               instance("TAV_StorageTape", {{"Index", "2"}, {"InterfaceType", -1}})};
    EXPECT_EQ(instancesText("TAV_StorageTape", two, 0), "TAV_StorageTape\n"
                                                        "  Index          1\n"
                                                        "  InterfaceType  0 (SCSI)\n"
                                                        "\n"
                                                        "TAV_StorageTape\n"
                                                        "  Index          2\n"
                                                        "  InterfaceType  -1 (Unknown)\n");
}

TEST(InstancesText, CodesHaveTheirWordAndNumbersTheirUnit)
{
    using testing_support::instance;
    EXPECT_EQ(instancesText("TAV_StorageHardDisk",
                            {instance("TAV_StorageHardDisk", {{"Capacity", 7844}, {"SmartStatus", 1}, {"Index", "1"}})},
                            0),
              "TAV_StorageHardDisk\n"
              "  Capacity     7844 MiB\n"
              "  SmartStatus  1 (Failure predicted)\n"
              "  Index        1\n");
}

TEST(InventoryText, AnEmptyInventoryIsExplained)
{
    Inventory inventory;
    inventory.explanation = "No host adapter is managed.";
    EXPECT_THAT(inventoryText(inventory, {}), HasSubstr("0 devices\nNo host adapter is managed.\n\nTotals"));
}

TEST(InstancesText, AnEmptyTextLeavesNoTrailingBlanks)
{
    EXPECT_EQ(instancesText("C", {testing_support::instance("C", {{"PNPDeviceID", ""}})}, 0), "C\n  PNPDeviceID\n");
}

TEST(ReturnValuesText, IsEmptyForAMethodThatReturnsNothing)
{
    EXPECT_EQ(returnValuesText({}), "");
    EXPECT_EQ(returnValuesText({broker::Value::number(1, CMPI_uint32)}), "return value 1\n");
}

TEST(CatalogueText, NamesTypesKeysMethodsAndArguments)
{
    const std::string text = catalogueText(catalogue(), 0);
    EXPECT_THAT(text, HasSubstr("TAV_StorageConfig (one instance)\n"));
    EXPECT_THAT(text, HasSubstr("  SetMonitorCycle       method, MonitorCycle=VALUE\n"));
    EXPECT_THAT(text, HasSubstr("TAV_StorageLifeSpan\n"
                                "  Index               string, key\n"
                                "  HDDIndex            sint16\n"));
    EXPECT_THAT(text, HasSubstr("TAV_StorageThread (one instance)\n"
                                "  ThreadRunning          uint16\n"
                                "  StartMonitoringThread  method\n"));
}

} // namespace

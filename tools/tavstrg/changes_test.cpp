// SPDX-License-Identifier: Apache-2.0
#include "tavstrg/changes.h"

#include <gtest/gtest.h>

namespace {

using namespace tool;

Device device(const std::string &serial, unsigned target, const std::string &node = "")
{
    Device made;
    made.vendor = "ATA";
    made.model = "DISK";
    made.serialNumber = serial;
    made.targetId = target;
    made.node = node;
    return made;
}

Inventory machineOf(std::vector<Device> devices)
{
    Inventory inventory;
    inventory.devicesWithoutController = std::move(devices);
    return inventory;
}

TEST(ChangesBetween, AreNoneOfTheSameMachine)
{
    const Inventory machine = machineOf({device("S1", 0), device("", 1), device("", 1)});
    EXPECT_TRUE(changesBetween(machine, machine).empty());
    EXPECT_EQ(changeWords({}), "");
}

TEST(ChangesBetween, ADiskWithItsSerialNumberIsTheSameInAnySlot)
{
    EXPECT_TRUE(changesBetween(machineOf({device("S1", 0)}), machineOf({device("S1", 7)})).empty());
    EXPECT_EQ(changesBetween(machineOf({device("", 0)}), machineOf({device("", 7)})).size(), 2U);
}

TEST(ChangesBetween, NameWhatCameAndWhatWent)
{
    EXPECT_EQ(changeWords(changesBetween(machineOf({device("S1", 0, "sda"), device("S2", 1, "sdb")}),
                                         machineOf({device("S1", 0, "sda"), device("S3", 1, "sdc")}))),
              "added hard disk sdc (0:1:0, ATA DISK, serial S3); removed hard disk sdb (0:1:0, ATA DISK, serial S2)");
    Inventory adapter;
    adapter.controllers.resize(1);
    adapter.controllers[0].driver = "ahci";
    adapter.controllers[0].host = 3;
    EXPECT_EQ(changeWords(changesBetween(adapter, {})), "removed controller (host 3, ahci)");
}

} // namespace

// SPDX-License-Identifier: Apache-2.0
#include "tavstrg/health.h"

#include <gtest/gtest.h>

#include <ostream>

namespace {

using namespace tool;

HardDisk disk(int smartStatus, std::optional<int> level = std::nullopt, Smart reading = Smart::good)
{
    HardDisk made;
    made.smartStatus = smartStatus;
    made.reading = reading;
    if (level) {
        made.lifeSpan = LifeSpan{1, *level};
    }
    return made;
}

HardDisk disk(Smart reading)
{
    return disk(0, std::nullopt, reading);
}

// Disks at 0:0:1:0 and so on, called sda and so on.
Inventory machineOf(const std::vector<HardDisk> &disks, int smartMode = 1)
{
    Inventory inventory;
    inventory.controllers.resize(1);
    for (const HardDisk &it : disks) {
        Device device;
        device.disk = it;
        device.host = 0;
        device.targetId = static_cast<unsigned>(inventory.controllers[0].devices.size()) + 1;
        device.node = std::string("sd") + static_cast<char>('a' + inventory.controllers[0].devices.size());
        device.serialNumber = "S" + std::to_string(device.targetId) + "  ";
        inventory.controllers[0].devices.push_back(device);
    }
    inventory.controllers[0].devices.push_back({}); // no disk
    inventory.monitoring.smartMode = smartMode;
    return inventory;
}

struct HealthCase {
    std::vector<HardDisk> disks;
    int smartMode;
    std::string words; // one item a line
    Mark mark;         // of the first
};

void PrintTo(const HealthCase &given, std::ostream *out)
{
    *out << given.words;
}

class HealthItems : public testing::TestWithParam<HealthCase> {};

TEST_P(HealthItems, NameTheStateAndTheDisksThatNeedAttention)
{
    std::string words;
    const std::vector<HealthItem> items = healthItems(healthOf(machineOf(GetParam().disks, GetParam().smartMode)));
    for (const HealthItem &item : items) {
        words += item.text + "\n";
    }
    EXPECT_EQ(words, GetParam().words);
    EXPECT_EQ(items.empty() ? Mark::none : items.front().mark, GetParam().mark);
}

INSTANTIATE_TEST_SUITE_P(
    Machines, HealthItems,
    testing::Values(
        HealthCase{{}, 1, "", Mark::none}, HealthCase{{disk(0)}, 1, "1 disk good\n", Mark::none},
        HealthCase{{disk(0), disk(0, 5)}, 1, "2 disks good\n", Mark::none},
        HealthCase{{disk(1)}, 1, "1 of 1 disk predicts failure: sda (0:0:1:0, serial S1)\n", Mark::failure},
        HealthCase{{disk(1), disk(0, 3), disk(1)},
                   1,
                   "2 of 3 disks predict failure: sda (0:0:1:0, serial S1), sdc (0:0:3:0, serial S3)\n1 disk good\n",
                   Mark::failure},
        HealthCase{{disk(-1)}, 1, "SMART status of 1 disk not readable: sda (0:0:1:0, serial S1)\n", Mark::warning},
        HealthCase{{disk(Smart::notReadable)},
                   1,
                   "SMART status of 1 disk not readable: sda (0:0:1:0, serial S1)\n",
                   Mark::warning},
        HealthCase{{disk(Smart::notSupported)}, 1, "SMART not supported by 1 disk\n", Mark::none},
        HealthCase{
            {disk(Smart::notAsked)}, 0, "SMART status of 1 disk not asked (HardDiskSmartMode is 0)\n", Mark::warning},
        HealthCase{{disk(Smart::notAsked)}, 1, "SMART status of 1 disk not asked (an IDE disk never is)\n", Mark::none},
        HealthCase{{disk(Smart::unconfirmed)}, 1, "no failure reported by 1 disk\n", Mark::none},
        HealthCase{{disk(0, 1)},
                   1,
                   "1 drive with least endurance left (level 1 of 5): sda (0:0:1:0, serial S1)\n1 disk good\n",
                   Mark::failure},
        HealthCase{{disk(0, 2), disk(0, -1)},
                   1,
                   "1 drive with little endurance left (level 2 of 5): sda (0:0:1:0, serial S1)\n"
                   "life span of 1 drive not readable: sdb (0:0:2:0, serial S2)\n2 disks good\n",
                   Mark::warning}));

TEST(HealthOf, CountsDisksOfAllLists)
{
    Inventory inventory = machineOf({disk(1)});
    Device lost;
    lost.disk = disk(1);
    inventory.devicesWithoutController = {lost};
    inventory.disksWithoutDevice = {disk(0), disk(1)};
    const auto health = healthOf(inventory);
    EXPECT_EQ(health.disks, 4U);
    EXPECT_EQ(health.failurePredicted, 3U);
}

TEST(MarkOfADisk, IsOfItsWorstState)
{
    EXPECT_EQ(markOf(disk(0)), Mark::none);
    EXPECT_EQ(markOf(disk(Smart::notSupported)), Mark::none);
    EXPECT_EQ(markOf(disk(Smart::notAsked)), Mark::none);
    EXPECT_EQ(markOf(disk(Smart::notReadable)), Mark::warning);
    EXPECT_EQ(markOf(disk(0, 3)), Mark::none);
    EXPECT_EQ(markOf(disk(0, 2)), Mark::warning);
    EXPECT_EQ(markOf(disk(0, -1)), Mark::warning);
    EXPECT_EQ(markOf(disk(-1, 5)), Mark::warning);
    EXPECT_EQ(markOf(disk(7)), Mark::warning);
    EXPECT_EQ(markOf(disk(-1, 1)), Mark::failure);
    EXPECT_EQ(markOf(disk(1, 5)), Mark::failure);
}

} // namespace

// SPDX-License-Identifier: Apache-2.0
#include "tavstrg/health.h"

#include <gtest/gtest.h>

#include <ostream>

namespace {

using namespace tool;

HardDisk disk(int smartStatus, std::optional<int> level = std::nullopt)
{
    HardDisk made;
    made.smartStatus = smartStatus;
    if (level) {
        made.lifeSpan = LifeSpan{1, *level};
    }
    return made;
}

Inventory machineOf(const std::vector<HardDisk> &disks, int smartMode = 1)
{
    Inventory inventory;
    inventory.controllers.resize(1);
    for (const HardDisk &it : disks) {
        Device device;
        device.disk = it;
        inventory.controllers[0].devices.push_back(device);
    }
    inventory.controllers[0].devices.push_back({}); // no disk
    inventory.monitoring.smartMode = smartMode;
    return inventory;
}

struct HealthCase {
    std::vector<HardDisk> disks;
    int smartMode;
    const char *words;
    Mark mark;
};

void PrintTo(const HealthCase &given, std::ostream *out)
{
    *out << given.words;
}

class HealthWords : public testing::TestWithParam<HealthCase> {};

TEST_P(HealthWords, SayWhatIsWrongAndOfHowMany)
{
    const Health health = healthOf(machineOf(GetParam().disks, GetParam().smartMode));
    EXPECT_EQ(healthWords(health), GetParam().words);
    EXPECT_EQ(markOf(health), GetParam().mark);
}

INSTANTIATE_TEST_SUITE_P(
    Machines, HealthWords,
    testing::Values(
        HealthCase{{}, 1, "", Mark::none}, HealthCase{{disk(0)}, 1, "no failure reported by 1 disk", Mark::none},
        HealthCase{{disk(0), disk(0, 5)}, 1, "no failure reported by 2 disks", Mark::none},
        HealthCase{{disk(1)}, 1, "1 of 1 disk predicts failure", Mark::failure},
        HealthCase{{disk(1), disk(0, 3), disk(1)}, 1, "2 of 3 disks predict failure", Mark::failure},
        HealthCase{{disk(-1)}, 1, "SMART status of 1 disk not readable", Mark::warning},
        HealthCase{{disk(0, 1), disk(0, 1)}, 1, "2 drives with least endurance left (level 1 of 5)", Mark::failure},
        HealthCase{{disk(0, 2)}, 1, "1 drive with little endurance left (level 2 of 5)", Mark::warning},
        HealthCase{{disk(0, -1)}, 1, "life span of 1 drive not read", Mark::warning},
        HealthCase{{disk(0)}, 0, "SMART is not handled", Mark::none},
        HealthCase{
            {disk(1, 2), disk(-1, -1), disk(0, 1)},
            1,
            "1 of 3 disks predicts failure, SMART status of 1 disk not readable, "
            "1 drive with least endurance left (level 1 of 5), 1 drive with little endurance left (level 2 of 5), "
            "life span of 1 drive not read",
            Mark::failure}));

TEST(HealthOf, CountsDisksWhereverTheyStand)
{
    Inventory inventory = machineOf({disk(1)});
    Device lost;
    lost.disk = disk(1);
    inventory.devicesWithoutController = {lost};
    inventory.disksWithoutDevice = {disk(0), disk(1)};
    const Health health = healthOf(inventory);
    EXPECT_EQ(health.disks, 4U);
    EXPECT_EQ(health.failurePredicted, 3U);
}

TEST(MarkOfADisk, IsTheWorstThatIsToBeSaid)
{
    EXPECT_EQ(markOf(disk(0)), Mark::none);
    EXPECT_EQ(markOf(disk(0, 3)), Mark::none);
    EXPECT_EQ(markOf(disk(0, 2)), Mark::warning);
    EXPECT_EQ(markOf(disk(0, -1)), Mark::warning);
    EXPECT_EQ(markOf(disk(-1, 5)), Mark::warning);
    EXPECT_EQ(markOf(disk(7)), Mark::warning);
    EXPECT_EQ(markOf(disk(-1, 1)), Mark::failure);
    EXPECT_EQ(markOf(disk(1, 5)), Mark::failure);
}

} // namespace

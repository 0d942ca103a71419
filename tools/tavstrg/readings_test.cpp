// SPDX-License-Identifier: Apache-2.0
#include "tavstrg/readings.h"

#include <gmock/gmock.h>

#include <string>

namespace {

using namespace tool;
using testing::ElementsAre;

struct Line {
    int level;
    const char *function, *text;
};

// The trace of one disk, as the dispatcher begins and ends it.
std::vector<Smart> readingsOf(const std::vector<Line> &lines)
{
    SmartReadings readings;
    readings.take(0, "strgGetCurrentInfo", "_IN_ smartmode=[1]");
    readings.take(0, "TAVStorageSmartWatch", "_IN_");
    for (const Line &line : lines) {
        readings.take(line.level, line.function, line.text);
    }
    readings.take(0, "TAVStorageSmartWatch", "_OUT_");
    return readings.found();
}

TEST(SmartReadings, ADiskIsGoodOnlyIfItsStatusWasRead)
{
    EXPECT_THAT(readingsOf({{0, "fetch_enable_disable", "_IN_"},
                            {0, "enable_sata_smart", "SATA SMART enable successed!"},
                            {0, "get_sata_smart", "sata SMART status is OK!"}}),
                ElementsAre(Smart::good));
    EXPECT_THAT(readingsOf({{0, "enable_scsi_smart", "_IN_"}, {0, "get_scsi_smart", "dSmartPage=1;asc =0"}}),
                ElementsAre(Smart::good));
}

TEST(SmartReadings, ADiskThatGotNoCommandWasNotAsked)
{
    EXPECT_THAT(readingsOf({}), ElementsAre(Smart::notAsked));
}

TEST(SmartReadings, ADiskWithoutSmartIsNotSupported)
{
    EXPECT_THAT(readingsOf({{0, "enable_sata_smart", "/dev/sda: not support smart"}}),
                ElementsAre(Smart::notSupported));
    EXPECT_THAT(readingsOf({{0, "enable_scsi_smart", "/dev/sda : not support S.M.A.R.T."}}),
                ElementsAre(Smart::notSupported));
}

TEST(SmartReadings, AnythingElseIsNotReadable)
{
    EXPECT_THAT(readingsOf({{3, "enable_sata_smart", "SATA SMART enable failed!"}}), ElementsAre(Smart::notReadable));
    EXPECT_THAT(
        readingsOf({{0, "get_scsi_smart", "_IN_"}, {3, "get_scsi_smart", "Log Sense :/dev/sda failed, errno=[5]"}}),
        ElementsAre(Smart::notReadable));
    EXPECT_THAT(readingsOf({{0, "get_sata_smart", "_IN_"},
                            {3, "scsi_find_sense_data", "error,response code 70,addtional sense length 10"},
                            {0, "get_sata_smart", "sata SMART status is OK!"}}),
                ElementsAre(Smart::notReadable))
        << "sense data without the registers holds no verdict";
    EXPECT_THAT(readingsOf({{0, "get_sata_smart", "_IN_"},
                            {0, "get_sata_smart", "_OUT_"},
                            {3, "scsi_find_sense_data", "of switching it off again"}}),
                ElementsAre(Smart::good));
}

TEST(SmartReadings, TheLastCollectionCounts)
{
    SmartReadings readings;
    for (int collection = 0; collection < 2; ++collection) {
        readings.take(0, "strgGetCurrentInfo", "_IN_ smartmode=[1]");
        for (int disk = 0; disk <= collection; ++disk) {
            readings.take(0, "TAVStorageSmartWatch", "_IN_");
            readings.take(0, "TAVStorageSmartWatch", "_OUT_");
        }
    }
    EXPECT_EQ(readings.found().size(), 2U);
    EXPECT_EQ(readings.passes(), 0U);
    readings.take(0, "strgCheckConfigChange", "_OUT_ ret=[0]");
    EXPECT_EQ(readings.passes(), 1U);
}

Inventory twoDisksAndAnIdeDisk()
{
    Inventory inventory;
    inventory.devicesWithoutController.resize(3);
    for (unsigned i = 0; i < 3; ++i) {
        HardDisk disk;
        disk.index = 3 - i; // not in the order of the records
        disk.interfaceType = i == 0 ? kIde : kScsi;
        disk.reading = i == 0 ? Smart::notAsked : Smart::unconfirmed;
        inventory.devicesWithoutController[i].disk = disk;
    }
    return inventory;
}

TEST(SetReadings, GoByTheNumberOfTheDisk)
{
    Inventory inventory = twoDisksAndAnIdeDisk();
    setReadings(inventory, {Smart::good, Smart::notSupported});
    EXPECT_EQ(inventory.devicesWithoutController[0].disk->smart(), Smart::notAsked);
    EXPECT_EQ(inventory.devicesWithoutController[1].disk->smart(), Smart::notSupported);
    EXPECT_EQ(inventory.devicesWithoutController[2].disk->smart(), Smart::good);
}

TEST(SetReadings, AnotherNumberOfDisksConfirmsNothing)
{
    Inventory inventory = twoDisksAndAnIdeDisk();
    setReadings(inventory, {Smart::good});
    EXPECT_EQ(inventory.devicesWithoutController[2].disk->smart(), Smart::unconfirmed);
}

TEST(SetReadings, NeverHideAPredictedFailure)
{
    Inventory inventory = twoDisksAndAnIdeDisk();
    inventory.devicesWithoutController[2].disk->smartStatus = kFailurePredicted;
    setReadings(inventory, {Smart::notAsked, Smart::notAsked});
    EXPECT_EQ(inventory.devicesWithoutController[2].disk->smart(), Smart::failing);
}

} // namespace

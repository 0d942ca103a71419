// SPDX-License-Identifier: Apache-2.0
// The decoders of all protocols, on byte arrays.
#include "disks/ask/ata_command.h"
#include "disks/ask/ata_decode.h"
#include "disks/ask/nvme_command.h"
#include "disks/ask/nvme_decode.h"
#include "disks/ask/scsi_command.h"
#include "disks/ask/scsi_decode.h"

#include <gtest/gtest.h>
#include <limits>
#include <vector>

using namespace tavstrg;
using namespace tavstrg::disks;

namespace {

using Block = std::vector<uint8_t>;

void put(Block &block, size_t at, uint64_t value, size_t length)
{
    for (size_t i = 0; i < length; ++i) {
        block[at + i] = static_cast<uint8_t>(value >> 8 * i);
    }
}

// ---- ATA ----

// As libata returns COUNT FFh and the signature of a good disk: descriptor format.
Block descriptorSense(uint8_t count, uint8_t mid, uint8_t high, uint8_t status = 0x50)
{
    return {0x72, 1, 0, 0x1D, 0, 0, 0, 14, 9, 12, 0, 0, 0, count, 0, 0, 0, mid, 0, high, 0x40, status};
}

Block fixedSense(uint8_t count, uint8_t mid, uint8_t high, uint8_t status = 0x50)
{
    return {0x70, 0, 1, 0, status, 0x40, count, 10, 0, 0, mid, high, 0, 0x1D, 0, 0, 0, 0};
}

TEST(AtaRegisters, OfBothFormatsOfSenseData)
{
    for (const Block &sense : {descriptorSense(0x80, 0xF4, 0x2C), fixedSense(0x80, 0xF4, 0x2C)}) {
        const auto registers = registersOf(sense);
        ASSERT_TRUE(registers);
        EXPECT_EQ(registers->count, 0x80);
        EXPECT_EQ(registers->status, 0x50);
        EXPECT_FALSE(failed(*registers));
        EXPECT_EQ(verdictOf(*registers), SmartVerdict::exceeded);
    }
    EXPECT_TRUE(failed(*registersOf(descriptorSense(0, 0, 0, 0x51))));
    EXPECT_EQ(verdictOf(*registersOf(fixedSense(0, 0x4F, 0xC2))), SmartVerdict::good);
    EXPECT_EQ(verdictOf(*registersOf(fixedSense(0, 0x4F, 0x2C))), SmartVerdict::unknown);
}

TEST(AtaRegisters, FixedSenseOfAnotherErrorHasNone)
{
    Block sense = fixedSense(0xFF, 0x4F, 0xC2);
    sense[13] = 0;
    EXPECT_FALSE(registersOf(sense));
    EXPECT_FALSE(registersOf(Block{}));
}

TEST(AtaRegisters, CutSenseDataHaveNone)
{
    const Block whole = descriptorSense(0xFF, 0x4F, 0xC2);
    for (size_t length = 0; length < whole.size(); ++length) {
        EXPECT_FALSE(registersOf({whole.data(), length})) << length;
    }
    const Block fixed = fixedSense(0xFF, 0x4F, 0xC2);
    for (size_t length = 0; length < 14; ++length) {
        EXPECT_FALSE(registersOf({fixed.data(), length})) << length;
    }
}

TEST(AtaPower, ValuesOfTheStandard)
{
    EXPECT_EQ(powerOf(0x00), PowerState::standby);
    EXPECT_EQ(powerOf(0x01), PowerState::standby);
    EXPECT_EQ(powerOf(0x40), PowerState::standby);
    EXPECT_EQ(powerOf(0x41), PowerState::active);
    EXPECT_EQ(powerOf(0x80), PowerState::idle);
    EXPECT_EQ(powerOf(0x83), PowerState::idle);
    EXPECT_EQ(powerOf(0xFF), PowerState::active);
    EXPECT_EQ(powerOf(0x55), PowerState::unknown);
}

Block identify()
{
    Block block(512);
    put(block, 2 * 82, 1, 2);
    put(block, 2 * 83, 0x4000, 2);
    put(block, 2 * 84, 0x4120, 2);
    put(block, 2 * 85, 1, 2);
    put(block, 2 * 87, 0x4100, 2);
    put(block, 2 * 108, 0x5000, 2);
    put(block, 2 * 109, 0xC500, 2);
    put(block, 2 * 110, 0xA1B2, 2);
    put(block, 2 * 111, 0xC3D4, 2);
    put(block, 2 * 217, 7200, 2);
    const std::string serial = "        NW-001      ";
    for (size_t i = 0; i < 20; ++i) {
        block[20 + i] = static_cast<uint8_t>(serial[i ^ 1U]);
    }
    return block;
}

TEST(Identify, CapabilitiesTextsAndName)
{
    const auto identity = identityOf(identify());
    ASSERT_TRUE(identity);
    EXPECT_TRUE(identity->smartSupported && identity->smartEnabled && identity->logsSupported && identity->wordsValid);
    EXPECT_STREQ(identity->serial, "NW-001");
    EXPECT_STREQ(identity->wwid, "naa.5000c500a1b2c3d4");
    EXPECT_EQ(identity->rotationsPerMinute.value, 7200U);
    EXPECT_TRUE(identity->rotational.value);
}

TEST(Identify, SolidStateAndUnknownRotation)
{
    Block block = identify();
    put(block, 2 * 217, 1, 2);
    EXPECT_TRUE(identityOf(block)->rotational && !identityOf(block)->rotational.value);
    put(block, 2 * 217, 0xFFFF, 2);
    EXPECT_FALSE(identityOf(block)->rotational);
}

TEST(Identify, WithoutBitsNothingIsAnnounced)
{
    Block block = identify();
    put(block, 2 * 83, 0xC000, 2);
    put(block, 2 * 84, 0x0020, 2);
    put(block, 2 * 87, 0x4000, 2);
    const auto identity = identityOf(block);
    EXPECT_FALSE(identity->wordsValid);
    EXPECT_FALSE(identity->logsSupported);
    EXPECT_STREQ(identity->wwid, "");
}

TEST(Identify, ShortEmptyAndPacketRepliesAreNone)
{
    Block block = identify();
    EXPECT_FALSE(identityOf({block.data(), 511}));
    EXPECT_FALSE(identityOf(Block(512)));
    block[1] = 0x80;
    EXPECT_FALSE(identityOf(block));
}

Block smartPage(const std::vector<std::array<uint64_t, 4>> &entries)
{
    Block block(512);
    for (size_t i = 0; i < entries.size(); ++i) {
        const size_t at = 2 + 12 * i;
        block[at] = static_cast<uint8_t>(entries[i][0]);
        put(block, at + 1, entries[i][1], 2);
        block[at + 3] = static_cast<uint8_t>(entries[i][2]);
        block[at + 4] = block[at + 3];
        put(block, at + 5, entries[i][3], 6);
    }
    return block;
}

TEST(SmartData, AttributesAndWhatTheyMean)
{
    Readings readings{};
    takeAttributes(smartPage({{5, 0x33, 100, 3},
                              {9, 0x32, 90, 0x123400002710},
                              {0, 0, 0, 0},
                              {194, 0x22, 70, 0x2500200028},
                              {197, 0x12, 100, 1},
                              {187, 0x32, 100, 2},
                              {12, 0x32, 100, 44}}),
                   readings);
    EXPECT_EQ(readings.attributeCount, 6U);
    readAttributes(readings);
    EXPECT_EQ(readings.reallocatedSectors.value, 3U);
    EXPECT_EQ(readings.powerOnHours.value, 10000U);
    EXPECT_EQ(readings.temperatureCelsius.value, 40);
    EXPECT_EQ(readings.pendingSectors.value, 1U);
    EXPECT_EQ(readings.mediaErrors.value, 2U);
    EXPECT_EQ(readings.powerCycles.value, 44U);
    EXPECT_EQ(readings.attributes[1].raw, 0x123400002710U);
}

TEST(SmartData, AbsentAttributesAreAbsentReadings)
{
    Readings readings{};
    takeAttributes(Block(512), readings);
    readAttributes(readings);
    EXPECT_FALSE(readings.powerOnHours || readings.temperatureCelsius || readings.pendingSectors);
}

TEST(SmartData, AnAbsentSensorIsNoTemperature)
{
    Readings readings{};
    takeAttributes(smartPage({{194, 0, 100, 0}}), readings);
    readAttributes(readings);
    EXPECT_FALSE(readings.temperatureCelsius);
}

TEST(SmartData, CutPagesGiveWholeAttributesOnly)
{
    const Block block = smartPage({{5, 0, 1, 1}, {9, 0, 1, 1}});
    for (const auto &[length, count] : {std::pair<size_t, uint32_t>{0, 0}, {13, 0}, {14, 1}, {25, 1}, {26, 2}}) {
        Readings readings{};
        takeAttributes({block.data(), length}, readings);
        EXPECT_EQ(readings.attributeCount, count) << length;
    }
}

TEST(SmartData, ThresholdsGoToTheirAttributes)
{
    Readings readings{};
    takeAttributes(smartPage({{5, 0, 100, 0}, {9, 0, 100, 0}}), readings);
    Block thresholds(512);
    thresholds[2] = 9;
    thresholds[3] = 0;
    thresholds[14] = 77;
    thresholds[15] = 50;
    takeThresholds(thresholds, readings);
    EXPECT_FALSE(readings.attributes[0].threshold);
    EXPECT_TRUE(readings.attributes[1].threshold);
}

Block statistics(uint8_t page)
{
    Block block(512);
    block[0] = 1;
    block[2] = page;
    return block;
}

TEST(DeviceStatistics, PagesAreListedAndRead)
{
    Block directory(512);
    put(directory, 8, 8, 2);
    EXPECT_EQ(pagesOfLog(directory, kDeviceStatistics), 8U);
    Block list = statistics(0);
    list[8] = 3;
    list[9] = 0;
    list[10] = 1;
    list[11] = 7;
    list[12] = 5;
    EXPECT_TRUE(listsStatistics(list, 1) && listsStatistics(list, 7));
    EXPECT_FALSE(listsStatistics(list, 5)) << "behind the end of the list";
    Readings readings{};
    Block general = statistics(1);
    put(general, 8, 0xC00000000000002C, 8);
    put(general, 16, 0xC000000000002710, 8);
    put(general, 24, 0xC000000000000002, 8);
    takeStatistics(general, 1, readings);
    EXPECT_EQ(readings.powerCycles.value, 44U);
    EXPECT_EQ(readings.powerOnHours.value, 10000U);
    EXPECT_EQ(readings.bytesWritten.value, 1024U);
    EXPECT_FALSE(readings.bytesRead);
    Block temperature = statistics(5);
    put(temperature, 8, 0xC0000000000000FB, 8);
    takeStatistics(temperature, 5, readings);
    EXPECT_EQ(readings.temperatureCelsius.value, -5);
}

TEST(DeviceStatistics, PercentageUsedMayExceedAHundred)
{
    for (const uint32_t used : {0U, 79U, 100U, 255U}) {
        Block wear = statistics(7);
        put(wear, 8, 0xC000000000000000 | used, 8);
        Readings readings{};
        takeStatistics(wear, 7, readings);
        EXPECT_TRUE(readings.enduranceUsedPercent);
        EXPECT_EQ(readings.enduranceUsedPercent.value, used);
    }
}

TEST(DeviceStatistics, InvalidShortAndOtherPagesGiveNothing)
{
    Block wear = statistics(7);
    put(wear, 8, 0x8000000000000010, 8);
    Readings readings{};
    takeStatistics(wear, 7, readings);
    put(wear, 8, 0xC000000000000010, 8);
    takeStatistics({wear.data(), 511}, 7, readings);
    takeStatistics(wear, 5, readings);
    EXPECT_FALSE(readings.enduranceUsedPercent || readings.temperatureCelsius);
}

// ---- SCSI ----

Block requestedSense(uint8_t key, uint8_t asc, uint8_t ascq, bool fixed = true)
{
    return fixed ? Block{0x70, 0, key, 0, 0, 0, 0, 10, 0, 0, 0, 0, asc, ascq, 0, 0, 0, 0}
                 : Block{0x72, key, asc, ascq, 0, 0, 0, 0};
}

TEST(ScsiPower, ConditionsOfBothFormats)
{
    for (const bool fixed : {true, false}) {
        EXPECT_EQ(powerOfSense(requestedSense(0, 0, 0, fixed)), PowerState::active);
        EXPECT_EQ(powerOfSense(requestedSense(0, 0x5E, 0x02, fixed)), PowerState::standby);
        EXPECT_EQ(powerOfSense(requestedSense(0, 0x5E, 0x04, fixed)), PowerState::standby);
        EXPECT_EQ(powerOfSense(requestedSense(0, 0x5E, 0x0A, fixed)), PowerState::standby);
        EXPECT_EQ(powerOfSense(requestedSense(0, 0x5E, 0x01, fixed)), PowerState::idle);
        EXPECT_EQ(powerOfSense(requestedSense(2, 0x04, 0x02, fixed)), PowerState::standby);
        EXPECT_EQ(powerOfSense(requestedSense(2, 0x04, 0x01, fixed)), PowerState::active);
    }
    EXPECT_EQ(powerOfSense(Block{}), PowerState::unknown);
    EXPECT_EQ(powerOfSense(Block(18)), PowerState::unknown);
}

Block logPage(uint8_t code, const Block &parameters)
{
    Block page{code, 0, static_cast<uint8_t>(parameters.size() >> 8), static_cast<uint8_t>(parameters.size())};
    page.insert(page.end(), parameters.begin(), parameters.end());
    page.resize(std::max<size_t>(page.size(), kScsiReply));
    return page;
}

TEST(ScsiLogs, TemperatureWearHoursAndCycles)
{
    Readings readings{};
    takeLogPage(logPage(0x0D, {0, 0, 3, 2, 0, 38, 0, 1, 3, 2, 0, 65}), 0x0D, readings);
    takeLogPage(logPage(0x11, {0, 1, 3, 4, 0, 0, 0, 255}), 0x11, readings);
    takeLogPage(logPage(0x15, {0, 0, 3, 12, 0, 0x09, 0x27, 0xC0, 0, 0, 0, 0, 0, 0, 0, 0}), 0x15, readings);
    takeLogPage(logPage(0x0E, {0, 1, 3, 6, '2', '0', '2', '4', '0', '1', 0, 4, 3, 4, 0, 0, 0, 17}), 0x0E, readings);
    EXPECT_EQ(readings.temperatureCelsius.value, 38);
    EXPECT_EQ(readings.enduranceUsedPercent.value, 255U);
    EXPECT_EQ(readings.powerOnHours.value, 10000U);
    EXPECT_EQ(readings.powerCycles.value, 17U);
}

TEST(ScsiLogs, AbsentSensorsAndCountersAreAbsent)
{
    Readings readings{};
    takeLogPage(logPage(0x0D, {0, 0, 3, 2, 0, 0xFF}), 0x0D, readings);
    takeLogPage(logPage(0x0E, {0, 4, 3, 4, 0xFF, 0xFF, 0xFF, 0xFF}), 0x0E, readings);
    takeLogPage(logPage(0x11, {0, 2, 3, 4, 0, 0, 0, 9}), 0x11, readings);
    EXPECT_FALSE(readings.temperatureCelsius || readings.powerCycles || readings.enduranceUsedPercent);
}

TEST(ScsiLogs, UncorrectedErrorsOfReadsAndWritesAreAdded)
{
    Readings readings{};
    takeLogPage(logPage(0x02, {0, 6, 3, 2, 0, 5}), 0x02, readings);
    takeLogPage(logPage(0x03, {0, 6, 3, 8, 0, 0, 0, 0, 0, 0, 1, 0}), 0x03, readings);
    EXPECT_EQ(readings.mediaErrors.value, 261U);
    takeLogPage(logPage(0x03, {0, 6, 3, 9, 1, 0, 0, 0, 0, 0, 0, 0, 0}), 0x03, readings);
    EXPECT_EQ(readings.mediaErrors.value, std::numeric_limits<uint64_t>::max());
}

TEST(ScsiLogs, AnotherPagesReplyAndCutOnesGiveNothing)
{
    Readings readings{};
    const Block page = logPage(0x0D, {0, 0, 3, 2, 0, 38});
    takeLogPage(page, 0x11, readings);
    for (size_t length = 0; length < 10; ++length) {
        takeLogPage({page.data(), length}, 0x0D, readings);
    }
    EXPECT_FALSE(readings.temperatureCelsius || readings.enduranceUsedPercent);
    takeLogPage({page.data(), 10}, 0x0D, readings);
    EXPECT_TRUE(readings.temperatureCelsius);
}

TEST(ScsiLogs, PagesAreListed)
{
    const Block list = logPage(0x00, {0x00, 0x0D, 0x2F});
    EXPECT_TRUE(listsPage(list, 0x2F));
    EXPECT_FALSE(listsPage(list, 0x11));
    EXPECT_FALSE(listsPage({list.data(), 6}, 0x2F));
    EXPECT_TRUE(listsVpdPage(Block{0, 0, 0, 3, 0, 0x83, 0x89}, 0x89));
    EXPECT_FALSE(listsVpdPage(Block{0, 0, 0, 2, 0, 0x83, 0x89}, 0x89));
    EXPECT_FALSE(listsVpdPage(Block{}, 0));
}

TEST(ScsiLogs, ExceptionAndItsTemperature)
{
    Readings readings{};
    const auto exception = exceptionOf(logPage(0x2F, {0, 0, 3, 4, 0x5D, 0x10, 41, 0}), readings);
    EXPECT_TRUE(exception);
    EXPECT_EQ(exception.value, 0x5D10);
    EXPECT_EQ(readings.temperatureCelsius.value, 41);
    EXPECT_FALSE(exceptionOf(logPage(0x2F, {0, 0, 3, 1, 0x5D}), readings));
    EXPECT_FALSE(exceptionOf(logPage(0x2F, {}), readings));
    EXPECT_FALSE(exceptionOf(Block(252), readings));
}

TEST(ScsiMode, ExceptionsThatAreSwitchedOff)
{
    Block reply{0, 26, 0, 0, 0, 0, 0, 8, 0, 0, 0, 0, 0, 0, 2, 0, 0x1C, 10, 0x08, 6, 0, 0, 0, 0, 0, 0, 0, 0};
    EXPECT_TRUE(exceptionsAreDisabled(reply));
    for (size_t length = 0; length < 19; ++length) {
        EXPECT_FALSE(exceptionsAreDisabled({reply.data(), length})) << length;
    }
    reply[18] = 0;
    EXPECT_FALSE(exceptionsAreDisabled(reply));
    reply[18] = 8;
    reply[16] = 0x08;
    EXPECT_FALSE(exceptionsAreDisabled(reply)) << "another page";
}

// ---- NVMe ----

Block healthLog(uint8_t warning, uint8_t used)
{
    Block log(512);
    log[0] = warning;
    put(log, 1, 313, 2);
    log[3] = 100;
    log[4] = 10;
    log[5] = used;
    put(log, 32, 2, 8);
    put(log, 128, 10000, 8);
    put(log, 160, 3, 8);
    return log;
}

TEST(NvmeHealthLog, EveryReading)
{
    Readings readings{};
    const auto warning = takeHealthLog(healthLog(0, 255), readings);
    EXPECT_TRUE(warning && warning.value == 0);
    EXPECT_EQ(readings.temperatureCelsius.value, 40);
    EXPECT_EQ(readings.sparePercent.value, 100U);
    EXPECT_EQ(readings.enduranceUsedPercent.value, 255U);
    EXPECT_EQ(readings.bytesRead.value, 1024000U);
    EXPECT_EQ(readings.powerOnHours.value, 10000U);
    EXPECT_EQ(readings.mediaErrors.value, 3U);
}

TEST(NvmeHealthLog, AbsentSensorAndHugeCounters)
{
    Block log = healthLog(0, 0);
    put(log, 1, 0, 2);
    put(log, 40, 1, 8);
    put(log, 168, 1, 8);
    Readings readings{};
    EXPECT_TRUE(takeHealthLog(log, readings));
    EXPECT_FALSE(readings.temperatureCelsius);
    EXPECT_EQ(readings.bytesRead.value, std::numeric_limits<uint64_t>::max());
    EXPECT_EQ(readings.mediaErrors.value, std::numeric_limits<uint64_t>::max());
}

TEST(NvmeHealthLog, ShortAndEmptyLogsAreNone)
{
    Readings readings{};
    const Block log = healthLog(4, 1);
    EXPECT_FALSE(takeHealthLog({log.data(), 511}, readings));
    EXPECT_FALSE(takeHealthLog(Block(512), readings));
    EXPECT_FALSE(takeHealthLog(Block(512, 0xFF), readings));
    EXPECT_FALSE(readings.enduranceUsedPercent);
}

TEST(NvmeCommand, HealthLogOfTheController)
{
    std::array<uint8_t, kHealthLogLength> data{};
    const nvme_admin_cmd command = healthLogCommand(data);
    EXPECT_EQ(command.opcode, 2);
    EXPECT_EQ(command.nsid, 0xFFFFFFFF);
    EXPECT_EQ(command.cdw10, 0x007F0002U);
    EXPECT_EQ(command.data_len, 512U);
    EXPECT_EQ(command.addr, reinterpret_cast<uintptr_t>(data.data()));
}

} // namespace

// SPDX-License-Identifier: Apache-2.0
#include "disks/ask/verdict.h"

#include "disks/ask/nvme_decode.h"

#include <gtest/gtest.h>

using namespace tavstrg::disks;

namespace {

Readings worn(uint32_t percent)
{
    Readings readings{};
    readings.enduranceUsedPercent.set(percent);
    return readings;
}

AtaAttribute attribute(uint8_t id, uint16_t flags, uint8_t current, uint8_t worst, uint8_t threshold)
{
    return {id, current, worst, flags, {threshold, true}, 0};
}

TEST(AtaVerdict, TheDisksOwnVerdict)
{
    EXPECT_EQ(judgeAta({false, SmartVerdict::good}, {}).state, HealthState::good);
    EXPECT_EQ(judgeAta({false, SmartVerdict::exceeded}, {}).state, HealthState::failing);
    EXPECT_EQ(judgeAta({true, SmartVerdict::unknown}, {}).state, HealthState::unknown);
    EXPECT_EQ(judgeAta({false, SmartVerdict::unknown}, {}).state, HealthState::unknown);
    EXPECT_STREQ(judgeAta({false, SmartVerdict::good}, {}).source, "SMART status");
}

TEST(AtaVerdict, NamesTheAttributeThatExceeds)
{
    Readings readings{};
    readings.attributes[0] = attribute(1, 0x0F, 100, 100, 6);
    readings.attributes[1] = attribute(5, 0x33, 5, 5, 36);
    readings.attributeCount = 2;
    EXPECT_STREQ(judgeAta({false, SmartVerdict::exceeded}, readings).reason,
                 "predicts its failure: attribute 5 is 5, threshold 36");
}

TEST(AtaVerdict, WarnsOfWearPendingSectorsAndThePast)
{
    EXPECT_EQ(judgeAta({false, SmartVerdict::good}, worn(79)).state, HealthState::good);
    EXPECT_EQ(judgeAta({false, SmartVerdict::good}, worn(100)).state, HealthState::warning);
    Readings pending{};
    pending.pendingSectors.set(8);
    EXPECT_STREQ(judgeAta({false, SmartVerdict::good}, pending).reason, "sectors that cannot be read: 8");
    Readings past{};
    past.attributes[0] = attribute(3, 0x03, 97, 20, 25);
    past.attributeCount = 1;
    EXPECT_EQ(judgeAta({false, SmartVerdict::good}, past).state, HealthState::warning);
    past.attributes[0].flags = 0x32;
    EXPECT_EQ(judgeAta({false, SmartVerdict::good}, past).state, HealthState::good) << "age is no failure";
}

TEST(AtaVerdict, AttributesDecideWhereTheStatusDoesNotComeBack)
{
    Readings readings{};
    readings.attributes[0] = attribute(5, 0x33, 100, 100, 36);
    readings.attributeCount = 1;
    EXPECT_EQ(judgeAta({false, SmartVerdict::unknown}, readings).state, HealthState::good);
    EXPECT_STREQ(judgeAta({true, SmartVerdict::unknown}, readings).source, "SMART attributes");
    readings.attributes[0].current = 36;
    readings.pendingSectors.set(1);
    EXPECT_EQ(judgeAta({false, SmartVerdict::unknown}, readings).state, HealthState::failing);
    EXPECT_STREQ(judgeAta({false, SmartVerdict::unknown}, readings).source, "SMART attributes");
    readings.attributes[0].threshold = {};
    readings.pendingSectors = {};
    EXPECT_EQ(judgeAta({false, SmartVerdict::unknown}, readings).state, HealthState::unknown);
}

TEST(ScsiVerdict, ByCode)
{
    EXPECT_EQ(judgeScsi(someOf<uint16_t>(0), {}).state, HealthState::good);
    EXPECT_EQ(judgeScsi(someOf<uint16_t>(0x5D10), {}).state, HealthState::failing);
    EXPECT_EQ(judgeScsi(someOf<uint16_t>(0x5D73), {}).state, HealthState::warning);
    EXPECT_EQ(judgeScsi(someOf<uint16_t>(0x0B01), {}).state, HealthState::warning);
    EXPECT_EQ(judgeScsi(someOf<uint16_t>(0), worn(100)).state, HealthState::warning);
    EXPECT_EQ(judgeScsi({}, worn(100)).state, HealthState::warning);
    EXPECT_EQ(judgeScsi({}, worn(99)).state, HealthState::unknown);
}

TEST(NvmeVerdict, BitsAreToldApart)
{
    EXPECT_EQ(judgeNvme(0, worn(99)).state, HealthState::good);
    EXPECT_EQ(judgeNvme(0, worn(100)).state, HealthState::warning);
    EXPECT_EQ(judgeNvme(kSpareIsLow, {}).state, HealthState::warning);
    EXPECT_EQ(judgeNvme(kTemperatureBeyondThreshold, {}).state, HealthState::warning);
    EXPECT_EQ(judgeNvme(kReliabilityDegraded, worn(10)).state, HealthState::failing);
    EXPECT_EQ(judgeNvme(kReadOnly, {}).state, HealthState::failing);
    EXPECT_EQ(judgeNvme(kBackupFailed, {}).state, HealthState::warning);
    EXPECT_STREQ(judgeNvme(kReadOnly | kTemperatureBeyondThreshold, {}).reason, "is read-only now");
}

TEST(Verdict, TellsWarningsThatPassFromThoseThatStay)
{
    EXPECT_TRUE(isOfTemperature(judgeNvme(kTemperatureBeyondThreshold, {})));
    EXPECT_TRUE(isOfTemperature(judgeScsi(someOf<uint16_t>(0x0B01), {})));
    EXPECT_FALSE(isOfTemperature(judgeNvme(kSpareIsLow | kTemperatureBeyondThreshold, {})));
    EXPECT_FALSE(isOfTemperature(judgeScsi(someOf<uint16_t>(0x0B03), {})));
    Readings readings{};
    EXPECT_FALSE(showWear(readings));
    readings.pendingSectors.set(1);
    EXPECT_TRUE(showWear(readings));
    EXPECT_TRUE(showWear(worn(100)));
}

TEST(NvmeVerdict, WornOutIsAWarningEvenWhereReliabilityCountsAsDegraded)
{
    EXPECT_EQ(judgeNvme(kReliabilityDegraded, worn(120)).state, HealthState::warning);
    EXPECT_EQ(judgeNvme(kReliabilityDegraded | kReadOnly, worn(120)).state, HealthState::failing);
}

} // namespace

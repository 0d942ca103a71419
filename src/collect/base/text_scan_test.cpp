// SPDX-License-Identifier: Apache-2.0
#include "collect/base/text_scan.h"

#include <gtest/gtest.h>

#include <cstdint>

using namespace tavstrg;

TEST(TextScan, TakesWordsBetweenWhiteSpace)
{
    TextScan scan{"  Host: scsi0\n"};
    std::string_view word;
    ASSERT_TRUE(scan.word(word));
    EXPECT_EQ(word, "Host:");
    ASSERT_TRUE(scan.word(word));
    EXPECT_EQ(word, "scsi0");
    EXPECT_FALSE(scan.word(word));
}

TEST(TextScan, ANumberStopsWhereItsDigitsEnd)
{
    TextScan scan{" 2080/16"};
    int32_t number = 0;
    ASSERT_TRUE(scan.number(number));
    EXPECT_EQ(number, 2080);
    EXPECT_EQ(scan.rest, "/16");
}

TEST(TextScan, ANumberMayHaveASignAndLeadingZeros)
{
    int32_t number = 0;
    EXPECT_TRUE(TextScan{"-07"}.number(number));
    EXPECT_EQ(number, -7);
    EXPECT_TRUE(TextScan{"+5"}.number(number));
    EXPECT_EQ(number, 5);
}

TEST(TextScan, RefusesWhatIsNoNumberOrDoesNotFit)
{
    int32_t number = 42;
    for (const std::string_view text : {"", " ", "x", "+", "-", "+-5", "2147483648", "-2147483649"}) {
        EXPECT_FALSE(TextScan{text}.number(number)) << text;
    }
    EXPECT_EQ(number, 42);
}

TEST(TextScan, ALiteralMustComeNext)
{
    TextScan scan{"host3"};
    EXPECT_FALSE(scan.literal("Host"));
    EXPECT_TRUE(scan.literal("host"));
    EXPECT_EQ(scan.rest, "3");
}

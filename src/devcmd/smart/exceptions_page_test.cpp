// SPDX-License-Identifier: Apache-2.0
#include "devcmd/smart/exceptions_page.h"

#include "support/ioctl_double.h"

#include <array>
#include <gtest/gtest.h>

using namespace tavstrg;

namespace {

using Page = std::array<uint8_t, 4>;

TEST(ExceptionsPage, SwitchingOnTouchesDexcptAndTheMethodAlone)
{
    Page page{0x9C, 0x0A, 0xFF, 0xFF};
    switchExceptionsOn(page);
    EXPECT_EQ(page, (Page{0x9C, 0x0A, 0xF7, 0xF6}));
    page = {0, 0, 0, 0};
    switchExceptionsOn(page);
    EXPECT_EQ(page, (Page{0, 0, 0, 6}));
}

TEST(ExceptionsPage, SwitchingOffTouchesDexcptAlone)
{
    Page page{0x1C, 0x0A, 0x10, 0x33};
    switchExceptionsOff(page);
    EXPECT_EQ(page, (Page{0x1C, 0x0A, 0x18, 0x33}));
}

TEST(ExceptionsPage, IsReadByItsBits)
{
    EXPECT_EQ(savePagesBit(Page{0x80, 0, 0, 0}), 1);
    EXPECT_EQ(savePagesBit(Page{0x7F, 0xFF, 0xFF, 0xFF}), 0);
    EXPECT_TRUE(exceptionsAreOff(Page{0, 0, 0x08, 0}));
    EXPECT_FALSE(exceptionsAreOff(Page{0xFF, 0xFF, 0xF7, 0xFF}));
    for (unsigned method = 0; method < 16; ++method) {
        const Page page{0, 0, 0, static_cast<uint8_t>(0xF0 | method)};
        EXPECT_EQ(reportsOnRequest(page), method == 6 || method == 7 || method == 14 || method == 15) << method;
    }
}

TEST(ExceptionsPage, MustFitInTheBuffer)
{
    std::array<uint8_t, 255> buffer{};
    ASSERT_TRUE(exceptionsPageAt(buffer, 251));
    EXPECT_EQ(exceptionsPageAt(buffer, 251)->data(), &buffer[251]);
    for (const size_t offset : {252UL, 253UL, 255UL, 256UL, 65543UL, ~0UL}) {
        EXPECT_FALSE(exceptionsPageAt(buffer, offset)) << offset;
    }
}

struct KeyCase {
    uint8_t code;
    uint8_t before, after;
};

TEST(SenseKey, TheTwoRulesDifferForOtherResponseCodes)
{
    const KeyCase cases[] = {{0x70, 2, 2}, {0xF0, 2, 2}, {0x71, 2, 2}, {0x72, 1, 1}, {0xF2, 1, 1},
                             {0x73, 1, 1}, {0x00, 1, 2}, {0x6F, 1, 2}, {0x74, 1, 2}, {0x7F, 1, 2}};
    for (const KeyCase &c : cases) {
        const Page sense{c.code, 0xF1, 0xF2, 0xF3}; // keys 1 and 2 in bytes 1 and 2
        EXPECT_EQ(senseKeyBeforeSelect(sense), c.before) << int(c.code);
        EXPECT_EQ(senseKeyAfterSelect(sense), c.after) << int(c.code);
    }
    EXPECT_EQ(senseKeyBeforeSelect({}), 0);
    EXPECT_EQ(senseKeyAfterSelect({}), 0);
}

struct StatusCase {
    int result;
    unsigned status;
};

TEST(LegacyStatus, IsTheScsiStatusOrADriversSenseData)
{
    const StatusCase cases[] = {{2, 2},          {3, 2},          {0x81, 0},       {0x18, 0x18}, {0x08000000, 2},
                                {0x08000018, 2}, {0x07000002, 2}, {0x18000000, 2}, {0x100, 0},   {0x28, 0x28}};
    for (const StatusCase &c : cases) {
        EXPECT_EQ(legacyStatus(c.result), c.status) << std::hex << c.result;
    }
    EXPECT_TRUE(refusesPage(2, 5));
    EXPECT_FALSE(refusesPage(2, 6));
    EXPECT_FALSE(refusesPage(8, 5));
    EXPECT_TRUE(refusesPage(0x08000000, 5));
}

TEST(RequestedSenseCode, IsByte12OfFixedFormatElseByte2)
{
    std::array<uint8_t, 18> sense{};
    sense[2] = 0x0B;
    sense[12] = 0x5D;
    for (const auto &[code, asc] : {std::pair(0x70, 0x5D), std::pair(0xF1, 0x5D), std::pair(0x72, 0x0B),
                                    std::pair(0x73, 0x0B), std::pair(0x00, 0x0B), std::pair(0x7F, 0x0B)}) {
        sense[0] = static_cast<uint8_t>(code);
        EXPECT_EQ(requestedSenseCode(sense), asc) << code;
    }
    sense[0] = 0x70;
    EXPECT_EQ(requestedSenseCode(std::span(sense).first(12)), 0);
    EXPECT_EQ(requestedSenseCode({}), 0);
}

} // namespace

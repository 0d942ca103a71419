// SPDX-License-Identifier: Apache-2.0
#include "collect/ide/ide_parse.h"

#include <gtest/gtest.h>

#include <string>

using namespace tavstrg;

TEST(ParseIDEChannel, IsTheFirstWordAsANumber)
{
    EXPECT_EQ(parseIDEChannel("1\n"), 1);
    EXPECT_EQ(parseIDEChannel("  07 x"), 7);
}

TEST(ParseIDEChannel, IsUnknownWhenTheWordIsNoNumber)
{
    for (const char *text : {"", "\n", "(unknown)\n", "99999999999\n"}) {
        EXPECT_EQ(parseIDEChannel(text), 65535) << text;
    }
}

TEST(ParseIDELine, IsOneLineOfAtMost63Characters)
{
    EXPECT_EQ(parseIDELine("pci\nisa\n"), "pci");
    EXPECT_EQ(parseIDELine("disk"), "disk");
    EXPECT_EQ(parseIDELine(""), "");
    EXPECT_EQ(parseIDELine("with blanks \n"), "with blanks ");
    EXPECT_EQ(parseIDELine(std::string(63, 'm') + "\n"), std::string(63, 'm'));
    EXPECT_EQ(parseIDELine(std::string(64, 'm') + "\n"), std::string(63, 'm'));
    EXPECT_EQ(parseIDELine(std::string("a\0b\n", 4)), "a");
}

TEST(ParseIDEDriver, NameTheWordVersionAndAVersion)
{
    const IDEDriver driver = parseIDEDriver("ide-gd version 1.18\n");
    EXPECT_EQ(driver.name, "ide-gd");
    EXPECT_EQ(driver.version, "1.18");
}

TEST(ParseIDEDriver, AnyOtherTextIsUnknownTwice)
{
    for (const char *text : {"", "\n", "(none)\n", "ide-gd\n", "ide-gd version\n", "ide-gd version \n",
                             "ide-gd Version 1\n", "version 1.18\n", "ide gd version 1\n"}) {
        const IDEDriver driver = parseIDEDriver(text);
        EXPECT_EQ(driver.name, "Unknown") << text;
        EXPECT_EQ(driver.version, "Unknown") << text;
    }
}

TEST(ParseIDEGeometry, ReadsTheLineThatBeginsWithPhysical)
{
    IDEGeometry geometry = {};
    ASSERT_TRUE(parseIDEGeometry("logical      2080/255/63\nphysical     2080/16/63\n", geometry));
    EXPECT_EQ(geometry.cylinders, 2080);
    EXPECT_EQ(geometry.heads, 16);
    EXPECT_EQ(geometry.sectors, 63);
}

TEST(ParseIDEGeometry, FailsWithoutAWholePhysicalLine)
{
    IDEGeometry geometry = {};
    for (const char *text : {"", "logical 1/2/3\n", " physical 1/2/3\n", "physical\n", "physical 1/2\n",
                             "physical 1/2/x\n", "physical 1 /2/3\n"}) {
        EXPECT_FALSE(parseIDEGeometry(text, geometry)) << text;
    }
}

TEST(ParseIDECapacity, IsASixtyFourBitNumber)
{
    int64_t sectors = 0;
    ASSERT_TRUE(parseIDECapacity("6442450944\n", sectors));
    EXPECT_EQ(sectors, 6442450944);
    EXPECT_FALSE(parseIDECapacity("\n", sectors));
    EXPECT_FALSE(parseIDECapacity("99999999999999999999\n", sectors));
}

TEST(ParseIDECache, IsANumber)
{
    int32_t cache = 0;
    ASSERT_TRUE(parseIDECache("256\n", cache));
    EXPECT_EQ(cache, 256);
    EXPECT_FALSE(parseIDECache("none\n", cache));
}

TEST(ParseIDELink, IsThePartBeforeTheFirstSlash)
{
    std::string_view controller;
    ASSERT_TRUE(parseIDELink("ide0/hda/x", controller));
    EXPECT_EQ(controller, "ide0");
    EXPECT_FALSE(parseIDELink("ide0", controller));
    EXPECT_FALSE(parseIDELink("", controller));
}

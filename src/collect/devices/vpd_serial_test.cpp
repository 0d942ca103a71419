// SPDX-License-Identifier: Apache-2.0
#include "collect/devices/vpd_serial.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

using namespace tavstrg;

namespace {

using Bytes = std::vector<uint8_t>;

Bytes page80(const std::string &serial)
{
    Bytes page = {0x00, 0x80, 0x00, static_cast<uint8_t>(serial.size())};
    page.insert(page.end(), serial.begin(), serial.end());
    return page;
}

// A page 89h with IDENTIFY data whose serial number is padded on the left, as ATA disks do.
Bytes page89(std::string serial, uint8_t command = 0xEC)
{
    serial.insert(0, kAtaSerialLength - serial.size(), ' ');
    Bytes page(572);
    page[1] = 0x89;
    page[2] = 0x02;
    page[3] = 0x38;
    page[56] = command;
    for (size_t i = 0; i < kAtaSerialLength; ++i) {
        page[60 + kAtaSerialAt + (i ^ 1U)] = static_cast<uint8_t>(serial[i]);
    }
    return page;
}

std::string serial89(const Bytes &page)
{
    std::array<char, kAtaSerialLength> buffer;
    return std::string(serialOfPage89(page, buffer));
}

TEST(TrimmedSerial, HasNoBlanksAndControlCharactersAtItsEnds)
{
    EXPECT_EQ(trimmedSerial(" \t\x01 A B\r\n "), "A B");
    EXPECT_EQ(trimmedSerial(std::string_view("\0\0AB\0CD", 7)), "AB");
    EXPECT_EQ(trimmedSerial("\xC3\xBC"), "\xC3\xBC");
    EXPECT_EQ(trimmedSerial(" \n\x7F"), "");
    EXPECT_EQ(trimmedSerial(""), "");
}

TEST(Page80, HoldsTheSerialNumber)
{
    EXPECT_EQ(serialOfPage80(page80("      WD-WX12      ")), "WD-WX12");
}

TEST(Page80, IsReadNoFurtherThanItsLengthAndItsBytes)
{
    Bytes page = page80("123456");
    page[3] = 4;
    EXPECT_EQ(serialOfPage80(page), "1234");
    page[2] = 0xFF;
    EXPECT_EQ(serialOfPage80(page), "123456");
    for (size_t length = 0; length <= 4; ++length) {
        EXPECT_EQ(serialOfPage80({page.data(), length}), "") << length;
    }
    EXPECT_EQ(serialOfPage80({page.data(), 5}), "1");
}

TEST(Page80, IsNoOtherPage)
{
    Bytes page = page80("123456");
    page[1] = 0x83;
    EXPECT_EQ(serialOfPage80(page), "");
}

TEST(Page89, HoldsTheSerialNumberInWords)
{
    EXPECT_EQ(serial89(page89("S1AB0001")), "S1AB0001");
    EXPECT_EQ(serial89(page89("ODD", 0xA1)), "ODD");
    EXPECT_EQ(serial89(page89("12345678901234567890")), "12345678901234567890");
}

TEST(Page89, WithoutIdentifyDataIsNone)
{
    EXPECT_EQ(serial89(page89("S1AB0001", 0x00)), "");
    Bytes page = page89("S1AB0001");
    page[1] = 0x80;
    EXPECT_EQ(serial89(page), "");
    page[1] = 0x89;
    page.resize(60 + 39); // the field has 20 bytes from byte 20 on
    EXPECT_EQ(serial89(page), "");
    page.resize(60 + 40);
    EXPECT_NE(serial89(page), "S1AB0001"); // the last word is cut away
    EXPECT_EQ(serial89({}), "");
}

TEST(Identity, HoldsTheSerialNumberInItsField)
{
    std::string block(512, '\0');
    block.replace(20, 26, "     12345678901234567890X");
    EXPECT_EQ(serialOfIdentity(block), "123456789012345");
    EXPECT_EQ(serialOfIdentity(block.substr(0, 40)), "123456789012345");
    EXPECT_EQ(serialOfIdentity(block.substr(0, 39)), "");
}

} // namespace

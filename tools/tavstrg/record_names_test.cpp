// SPDX-License-Identifier: Apache-2.0
#include "tavstrg/record_names.h"

#include <gmock/gmock.h>

#include <numeric>

namespace {

using testing::HasSubstr;
using testing::Not;
using tool::ByteVector;
using tool::Names;

ByteVector bytes(const std::string &text)
{
    return {text.begin(), text.end()};
}

std::string text(const ByteVector &data)
{
    return {data.begin(), data.end()};
}

TEST(RecordNames, EqualOnesAreReplacedAlikeAndKeepTheirKind)
{
    Names names(false);
    const std::string first = names.serial("NWK-88204 17");
    EXPECT_EQ(first, "AAA-00000 01");
    EXPECT_EQ(names.serial("  NWK-88204 17  "), "  " + first + "  ");
    EXPECT_EQ(names.serial("NWK-88204 18"), "AAA-00000 02");
    EXPECT_EQ(names.serial("   "), "   ");
    EXPECT_EQ(Names(true).serial("NWK"), "NWK");
}

TEST(RecordNames, EverySerialNumberOfOneDigitHasAnotherReplacement)
{
    Names names(false);
    std::set<std::string> made;
    for (const char c : std::string("0123456789")) {
        made.insert(names.serial(std::string(1, c)));
    }
    EXPECT_EQ(made.size(), 10U);
}

TEST(RecordNames, WorldWideNamesKeepTheirMaker)
{
    Names names(false);
    EXPECT_EQ(names.wwid("naa.5000c500a1b2c3d4"), "naa.5000c50000000001");
    EXPECT_EQ(names.wwid("naa.5000c500a1b2c3d4"), "naa.5000c50000000001");
    EXPECT_EQ(names.wwid("eui.0025385b71b00001"), "eui.0025380000000002");
    EXPECT_EQ(names.wwid("eui.00000000000000018ce38e0500a1b2c3").substr(20, 6), "8ce38e");
    EXPECT_EQ(names.wwid("uuid.6ba7b810-9dad-11d1-80b4-00c04fd430c8"), "uuid.00000000-0000-1000-8000-000000000004");
    EXPECT_EQ(names.wwid("naa.5000000000000000"), "naa.5000000000000000") << "a placeholder stays one";
}

TEST(RecordNames, NamesThatAreMadeOfSerialNumbers)
{
    Names names(false);
    const std::string serial = names.serial("NW 88 20417");
    EXPECT_EQ(names.wwid("t10.ATA     NORDWIND NW1000   NW 88 20417"), "t10.ATA     NORDWIND NW1000   " + serial);
    EXPECT_EQ(serial, "AA 00 00001");
    EXPECT_EQ(names.wwid("nvme.1b36-4e57203838203230343137-5155-00000001"),
              "nvme.1b36-4141203030203030303031-5155-00000001");
    EXPECT_EQ(names.wwid("nvme.1b36-SECRET7-5155-00000001"), "nvme.1b36-AAAAAA1-5155-00000001");
    EXPECT_EQ(names.wwid("iqn.2001-04.com.example:tape"), "iqn.0000-00.aaa.aaaaaaa:aaab");
}

TEST(RecordNames, PagesHaveTheSameReplacements)
{
    Names names(false);
    const std::string wwid = names.wwid("naa.5000c500a1b2c3d4");
    ByteVector serialPage = bytes(std::string("\x00\x80\x00\x08", 4) + "SERIAL-7");
    EXPECT_EQ(text(names.serialPage(serialPage)).substr(4), names.serial("SERIAL-7"));
    const std::string naa("\x50\x00\xc5\x00\xa1\xb2\xc3\xd4", 8);
    const std::string page =
        std::string("\x00\x83\x00\x1c\x01\x03\x00\x08", 8) + naa + std::string("\x02\x00\x00\x08", 4) + "SERIAL-7";
    const std::string replaced = text(names.designatorPage(bytes(page)));
    EXPECT_EQ(replaced.substr(8, 8), std::string("\x50\x00\xc5\x00\x00\x00\x00\x01", 8));
    EXPECT_EQ(replaced.substr(20), names.serial("SERIAL-7"));
    EXPECT_EQ(names.designatorPage(bytes(page.substr(0, 10))), bytes(page.substr(0, 10))) << "a cut page";
}

TEST(RecordNames, IdentifyDataKeepTheirChecksum)
{
    ByteVector data(512);
    const std::string serial = "NWK8820417";
    for (size_t i = 0; i < 20; ++i) {
        data[20 + (i ^ 1U)] = static_cast<uint8_t>(i < serial.size() ? serial[i] : ' ');
    }
    const std::string elsewhere = "xxNWK8820417";
    for (size_t i = 0; i < elsewhere.size(); ++i) {
        data[300 + (i ^ 1U)] = static_cast<uint8_t>(elsewhere[i]);
    }
    data[510] = 0xA5;
    data[511] = static_cast<uint8_t>(0U - std::accumulate(data.begin(), data.end(), 0U));
    Names names(false);
    const ByteVector replaced = names.identify(data);
    EXPECT_EQ(std::accumulate(replaced.begin(), replaced.end(), 0U) % 256, 0U);
    EXPECT_THAT(text(replaced), Not(HasSubstr("WN8K28")));
    EXPECT_THAT(text(replaced), HasSubstr("AA0A000010")) << "in pairs of characters";
    EXPECT_EQ(Names(true).identify(data), data);
}

TEST(RecordNames, CutIdentifyDataHaveNoNamesEither)
{
    constexpr size_t kHeader = 60; // of page 89h
    for (const size_t size : {size_t{100}, size_t{35}}) {
        ByteVector data(size);
        const std::string serial = "WN8K280471IHUF"; // in pairs of characters
        std::copy(serial.begin(), serial.end(), data.begin() + 20);
        ByteVector page(kHeader);
        page.insert(page.end(), data.begin(), data.end());
        Names names(false);
        EXPECT_EQ(text(names.identify(data)).substr(20, serial.size()), "AA0A000000AABA");
        EXPECT_EQ(names.identify(data).size(), size);
        EXPECT_EQ(text(names.ataPage(page)).substr(kHeader + 20, serial.size()), "AA0A000000AABA");
        EXPECT_EQ(names.ataPage(page).size(), kHeader + size);
        EXPECT_EQ(Names(true).identify(data), data);
    }
    EXPECT_EQ(Names(false).identify(ByteVector(100)), ByteVector(100)) << "there is no name";
    EXPECT_EQ(Names(false).ataPage(ByteVector(kHeader)), ByteVector(kHeader));
}

TEST(RecordNames, ScrubFindsTheDevicesNamesInAnyReply)
{
    Names names(false);
    names.serial("OTHER-1234");
    names.beginDevice();
    names.serial("SERIAL-7");
    names.serial("ab");
    names.wwid("naa.5000c500a1b2c3d4");
    EXPECT_EQ(text(names.scrub(bytes("ab SERIAL-7 5000C500A1B2C3D4 OTHER-1234"))),
              "ab " + names.serial("SERIAL-7") + " 5000C50000000001 OTHER-1234");
}

TEST(RecordNames, NameOfAComponentMayHaveAWorldWideName)
{
    Names names(false);
    EXPECT_EQ(names.wwid("naa.5000c500a1b2c3d4"), "naa.5000c50000000001");
    EXPECT_EQ(names.component("SLOT 01 [DISK,5000C500A1B2C3D4]"), "SLOT 01 [DISK,5000c50000000001]");
    EXPECT_EQ(names.component("Slot 00"), "Slot 00");
}

TEST(RecordNames, CardAndItsSerialNumberHaveTheSameDigits)
{
    Names names(false);
    std::string cid = "4501004447343036340155a3c2f1d500";
    std::string serial = "0x55a3c2f1";
    names.card(cid, serial);
    EXPECT_EQ(cid, "45010044473430363401"
                   "00000001"
                   "d500");
    EXPECT_EQ(serial, "0x00000001");
}

} // namespace

// SPDX-License-Identifier: Apache-2.0
#include "monitor/disk_book.h"

#include "runtime/field_text.h"

#include <gtest/gtest.h>
#include <string>

using namespace tavstrg;

namespace {

DiskFacts facts(const std::string &serial, const std::string &model = "ACME ONE")
{
    DiskFacts disk = {};
    disk.controller = 2;
    copyText(disk.serial, serial);
    copyText(disk.wwid, "naa.5000c500a1b2c3d4");
    copyText(disk.model, model);
    copyText(disk.name, "sda");
    copyText(disk.address, "Address(Controller-Bus-ID-LUN) : 2-0-1-0");
    copyText(disk.label, "Hard Disk[1] : ACME ONE 1.0");
    return disk;
}

std::string composed(DiskBook &book)
{
    std::string text(bookSize(book), '\0');
    composeBook(book, text.data());
    return text;
}

// A book with two disks and three events.
void fillBook(DiskBook &book)
{
    book.next = 18;
    ASSERT_TRUE(book.disks.reserve(2) && book.events.reserve(3));
    book.disks.append({Verdict::good, Reading::readable, facts("S1")});
    book.disks.append({Verdict::failing, Reading::unreadable, facts("", "")});
    book.events.append({Delivery::done, DiskChange::added, 15, 0, facts("S1"), ""});
    book.events.append({Delivery::sending, DiskChange::removed, 16, 0, facts("S2"), ""});
    book.events.append({Delivery::waiting, DiskChange::replaced, 17, 0, facts("S3"), "S0"});
}

class Book : public testing::Test {
protected:
    Book()
    {
        fillBook(book);
        text = composed(book);
    }
    static BookState parsed(const std::string &text)
    {
        DiskBook read;
        return parseBook(text, read);
    }

    DiskBook book;
    std::string text;
};

TEST_F(Book, IsReadAsItWasWritten)
{
    DiskBook read;
    ASSERT_EQ(parseBook(text, read), BookState::good);
    EXPECT_EQ(read.next, 18U);
    ASSERT_EQ(read.disks.size(), 2U);
    EXPECT_EQ(read.disks[0], book.disks[0]);
    EXPECT_EQ(read.disks[1], book.disks[1]);
    ASSERT_EQ(read.events.size(), 3U);
    EXPECT_EQ(read.events[1].delivery, Delivery::sending);
    EXPECT_EQ(read.events[2].change, DiskChange::replaced);
    EXPECT_EQ(read.events[2].number, 17U);
    EXPECT_EQ(read.events[2].disk, facts("S3"));
    EXPECT_STREQ(read.events[2].former, "S0");
    EXPECT_EQ(composed(read), text);
}

TEST_F(Book, AnEmptyOneIsReadToo)
{
    DiskBook none;
    ASSERT_TRUE(none.disks.reserve(0));
    DiskBook read;
    ASSERT_EQ(parseBook(composed(none), read), BookState::good);
    EXPECT_EQ(read.next, 1U);
    EXPECT_EQ(read.disks.size(), 0U);
}

TEST_F(Book, AnyByteOfATextIsKept)
{
    std::string bytes;
    for (int c = 1; c < 256; ++c) {
        bytes += static_cast<char>(c);
    }
    for (const std::string &serial : {bytes, std::string("-"), std::string("--"), std::string("%"), std::string(" "),
                                      std::string("a\nend 0"), std::string(255, '\xFF')}) {
        DiskBook one;
        ASSERT_TRUE(one.disks.reserve(1));
        one.disks.append({Verdict::good, Reading::readable, facts(serial)});
        DiskBook read;
        ASSERT_EQ(parseBook(composed(one), read), BookState::good) << serial;
        EXPECT_EQ(read.disks[0].facts.serial, serial);
    }
}

TEST_F(Book, DeliveriesAreChangedInPlace)
{
    for (size_t i = 0; i < 3; ++i) {
        text[book.events[i].deliveryAt] = 'd';
    }
    DiskBook read;
    ASSERT_EQ(parseBook(text, read), BookState::good) << "they are not part of the sum";
    for (size_t i = 0; i < 3; ++i) {
        EXPECT_EQ(read.events[i].delivery, Delivery::done);
        EXPECT_EQ(read.events[i].deliveryAt, book.events[i].deliveryAt);
    }
    text[book.events[0].deliveryAt] = 'x';
    EXPECT_EQ(parsed(text), BookState::damaged);
}

TEST_F(Book, CutAnywhereIsDamaged)
{
    for (size_t size = 0; size < text.size(); ++size) {
        EXPECT_EQ(parsed(text.substr(0, size)), BookState::damaged) << size;
    }
    EXPECT_EQ(parsed(text + "x"), BookState::damaged);
    EXPECT_EQ(parsed(text + "\n"), BookState::damaged);
}

TEST_F(Book, ChangedAnywhereIsNotGood)
{
    for (size_t at = 0; at < text.size(); ++at) {
        std::string other = text;
        other[at] = static_cast<char>(other[at] ^ 0x01);
        EXPECT_NE(parsed(other), BookState::good) << at;
    }
}

TEST_F(Book, OfALaterVersionIsNotRead)
{
    EXPECT_EQ(parsed("tavstrg-disks 2\nwhatever\n"), BookState::newer);
    EXPECT_EQ(parsed("tavstrg-disks 2 and more\n"), BookState::damaged);
    EXPECT_EQ(parsed("tavstrg-disks 0\n"), BookState::damaged);
    EXPECT_EQ(parsed("# Version=1.0.0.1\n"), BookState::damaged);
}

// Lines with a right sum that no book has.
TEST_F(Book, WrongLinesAreDamage)
{
    const auto withLine = [](const std::string &line) {
        std::string body = "tavstrg-disks 1\nnext 1\n" + line + "\n";
        uint64_t sum = 0xcbf29ce484222325U;
        for (const char c : body) {
            sum = (sum ^ static_cast<unsigned char>(c)) * 0x100000001b3U;
        }
        char end[32];
        std::snprintf(end, sizeof end, "end %016llx\n", static_cast<unsigned long long>(sum));
        return body + end;
    };
    EXPECT_EQ(parsed(withLine("disk good readable 1 S W M N A L")), BookState::good);
    for (const std::string &line : std::initializer_list<std::string>{
             "",
             "disk",
             "disk fine readable 1 S W M N A L",
             "disk good readable 65536 S W M N A L",
             "disk good readable 1 S W M N A",
             "disk good readable 1 S W M N A L more",
             "disk good readable 1 S  W M N A L",
             "disk good readable 1 %0 W M N A L",
             "disk good readable 1 %00 W M N A L",
             "disk good readable 1 %zz W M N A L",
             "disk good readable 1 " + std::string(256, 's') + " W M N A L",
             "event q 1 added 1 S W M N A L -",
             "event w 1 lost 1 S W M N A L -",
             "next",
             "next -1",
             "other 1",
         }) {
        EXPECT_EQ(parsed(withLine(line)), BookState::damaged) << line;
    }
}

} // namespace

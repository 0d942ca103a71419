// SPDX-License-Identifier: Apache-2.0
#include "devcmd/kernel/proc_text.h"

#include "runtime/holders.h"
#include "support/ioctl_double.h"

#include <gtest/gtest.h>
#include <random>

using namespace tavstrg;

namespace {

std::vector<ProcLine> linesOf(const std::string &text)
{
    const FilePtr file(std::tmpfile());
    EXPECT_EQ(std::fwrite(text.data(), 1, text.size(), file.get()), text.size());
    std::rewind(file.get());
    std::vector<ProcLine> lines;
    size_t left = text.size() + 1;
    for (ProcLine line; readProcLine(file.get(), line, left);) {
        lines.push_back(line);
    }
    return lines;
}

TEST(ReadProcLine, StopsWhenNoCharactersAreLeft)
{
    const FilePtr file(std::tmpfile());
    ASSERT_GE(std::fputs("one\ntwo\nthree\n", file.get()), 0);
    std::rewind(file.get());
    size_t left = 6;
    ProcLine line;
    ASSERT_TRUE(readProcLine(file.get(), line, left));
    EXPECT_TRUE(line.complete);
    ASSERT_TRUE(readProcLine(file.get(), line, left));
    EXPECT_EQ(line.view(), "tw");
    EXPECT_FALSE(line.complete);
    EXPECT_EQ(left, 0U);
    EXPECT_FALSE(readProcLine(file.get(), line, left));
}

TEST(ReadProcLine, GivesLinesWithTheirNewlines)
{
    const auto lines = linesOf("one\n\nthree");
    ASSERT_EQ(lines.size(), 3U);
    EXPECT_EQ(lines[0].view(), "one\n");
    EXPECT_TRUE(lines[0].complete);
    EXPECT_EQ(lines[1].view(), "\n");
    EXPECT_EQ(lines[2].view(), "three");
    EXPECT_FALSE(lines[2].complete);
    EXPECT_TRUE(linesOf("").empty());
}

TEST(ReadProcLine, LooksAt1023CharactersAndPassesOverTheRest)
{
    const auto lines = linesOf(std::string(1022, 'a') + "\n" + std::string(1023, 'b') + "\n" + std::string(5000, 'c') +
                               "\nnext\n" + std::string(5000, 'd'));
    ASSERT_EQ(lines.size(), 5U);
    EXPECT_EQ(lines[0].view(), std::string(1022, 'a') + "\n");
    EXPECT_EQ(lines[1].view(), std::string(1023, 'b'));
    EXPECT_EQ(lines[2].view(), std::string(1023, 'c'));
    EXPECT_TRUE(lines[2].complete);
    EXPECT_EQ(lines[3].view(), "next\n");
    EXPECT_EQ(lines[4].view(), std::string(1023, 'd'));
    EXPECT_FALSE(lines[4].complete);
}

TEST(ReadProcLine, TakesBinaryBytesAsTheyAre)
{
    const std::string text("\0 \xFF\x80 5\0: x\nsecond\n", 18);
    const auto lines = linesOf(text);
    ASSERT_EQ(lines.size(), 2U);
    EXPECT_EQ(lines[0].view(), text.substr(0, 11));
    EXPECT_EQ(lines[1].view(), "second\n");
}

TEST(ProcLine, LosesOneNewline)
{
    ProcLine line = linesOf("a\n").at(0);
    line.removeNewline();
    EXPECT_STREQ(line.text, "a");
    line.removeNewline();
    EXPECT_EQ(line.view(), "a");
    ProcLine empty = linesOf("\n").at(0);
    empty.removeNewline();
    empty.removeNewline();
    EXPECT_EQ(empty.view(), "");
}

const std::string kNumberTexts[] = {
    "",
    "0:",
    "  7:  12  IO-APIC",
    "\t\v\f\r\n 9 :",
    "NMI:   0",
    ":5",
    "5",
    "5x",
    "-1:",
    "+3:",
    "+-3:",
    "- 3:",
    "--3:",
    "4294967295:",
    "4294967296:",
    "18446744073709551615:",
    "18446744073709551616:",
    "99999999999999999999999999:",
    "-99999999999999999999999999:",
    "0x10:",
    "00012:",
    "\xFF"
    "5",
    "0000-001f : dma1",
    "  c000-c0ff : sym53c8xx",
    "c000 -c0ff",
    "c000- c0ff",
    "c000-\n\tc0ff",
    "c000--1",
    "-1--1",
    "+10-+1f",
    "c000-",
    "c000-g",
    "c000",
    "-c0ff",
    "0x10-0X1F",
    "x10-1f",
    "DEAD-Beef : x",
    "ffffffffffffffff-10000000000000000",
    "fffffffffffffffff-0",
    "gggg-gggg",
    "no ports at all",
};

void readsAsScanfDoes(const std::string &text)
{
    SCOPED_TRACE(testing::PrintToString(text));
    InterruptSearch any{"", false};
    const std::optional<uint32_t> number = parseInterruptLine(text, any);
    unsigned scanned = 0;
    const bool one = std::sscanf(text.c_str(), "%u:", &scanned) == 1;
    ASSERT_EQ(number.has_value(), one);
    if (one) {
        ASSERT_EQ(*number, scanned);
    }
    unsigned long first = 0;
    unsigned long second = 0;
    const std::optional<unsigned long> start = parseIoportStart(text);
    ASSERT_EQ(start.has_value(), std::sscanf(text.c_str(), "%lx-", &first) == 1);
    if (start) {
        ASSERT_EQ(*start, first);
    }
    const std::optional<PortRange> range = parseIoportLine(text);
    ASSERT_EQ(range.has_value(), std::sscanf(text.c_str(), "%lx-%lx", &first, &second) == 2);
    if (range) {
        ASSERT_EQ(range->start, first);
        ASSERT_EQ(range->end, second);
    }
}

TEST(ProcNumbers, AreReadAsScanfReadsThem)
{
    for (const std::string &text : kNumberTexts) {
        readsAsScanfDoes(text);
    }
}

TEST(ProcNumbers, OfAnyCharactersAreReadAsScanfReadsThem)
{
    constexpr std::string_view kAlphabet = " \t0189afAFg-+:\n";
    std::mt19937 random(7);
    for (int round = 0; round < 50000 && !testing::Test::HasFailure(); ++round) {
        std::string text(random() % 16, ' ');
        for (char &c : text) {
            c = kAlphabet[random() % kAlphabet.size()];
        }
        readsAsScanfDoes(text);
    }
}

// C libraries differ here; ISO C calls it a matching failure.
TEST(ProcNumbers, APrefixWithoutDigitsIsNoNumber)
{
    EXPECT_EQ(parseIoportStart("0x"), std::nullopt);
    EXPECT_EQ(parseIoportStart("0xg-1"), std::nullopt);
    EXPECT_FALSE(parseIoportLine("0-0xg").has_value());
}

TEST(InterruptLine, MentionsTheNameAnywhere)
{
    const std::string_view line = " 16:  79  0  IO-APIC  16-fasteoi   ehci_hcd:usb1, ahci[0000:00:1f.2]\n";
    for (const char *name : {"ahci", "ehci_hcd", "IO-APIC", "1f.2]", "\n", ""}) {
        InterruptSearch search = interruptSearch(name);
        EXPECT_EQ(parseInterruptLine(line, search), 16U) << name;
    }
    for (const char *name : {"AHCI", "ahcii", "sata"}) {
        InterruptSearch search = interruptSearch(name);
        EXPECT_EQ(parseInterruptLine(line, search), std::nullopt) << name;
    }
}

TEST(InterruptLine, TheAuxiliaryPortSkipsOneMatchOnly)
{
    InterruptSearch search = interruptSearch("i80422");
    EXPECT_EQ(parseInterruptLine(" 4: ttyS0", search), std::nullopt);
    EXPECT_TRUE(search.skipMatch);
    EXPECT_EQ(parseInterruptLine(" 1: i8042", search), std::nullopt);
    EXPECT_EQ(parseInterruptLine("12: i8042", search), 12U);
    InterruptSearch other = interruptSearch("i8042");
    EXPECT_EQ(parseInterruptLine(" 1: i8042", other), 1U);
}

} // namespace

// SPDX-License-Identifier: Apache-2.0
#include "runtime/clean_text.h"

#include "support/options_fixture.h"

#include <cstdio>
#include <gtest/gtest.h>
#include <random>
#include <string>
#include <vector>

using namespace tavstrg;

namespace {

std::string cleaned(std::string_view text, size_t room = 512)
{
    std::string buffer(room, 'x');
    buffer.resize(cleanText(text, {buffer.data(), buffer.size()}));
    return buffer;
}

TEST(CleanText, TextThatIsCleanStaysAsItIs)
{
    for (const std::string_view text : {"", "WD-WCC4N1234567", "a  b", "größe", "站点", "\U0001F4BE", "<&>\"'",
                                        "\u00A0", "\uFFFD", "\U0010FFFF", "\u2028", "\uE000", "\uD7FF", "~", "?"}) {
        EXPECT_EQ(cleaned(text), text);
    }
}

TEST(CleanText, BlanksAtTheEndsAreCut)
{
    EXPECT_EQ(cleaned("  SERIAL \t"), "SERIAL");
    EXPECT_EQ(cleaned("\r\n SERIAL\v\f\n"), "SERIAL");
    EXPECT_EQ(cleaned(" \t "), "");
}

TEST(CleanText, ControlCharactersAreReplaced)
{
    EXPECT_EQ(cleaned("A\x01"
                      "B"),
              "A?B");
    EXPECT_EQ(cleaned("A\x1B[31mB\x7F"), "A?[31mB?");
    EXPECT_EQ(cleaned("A\tB\nC"), "A B C");
    EXPECT_EQ(cleaned(std::string_view("A\0B", 3)), "A?B");
    EXPECT_EQ(cleaned("A\u0080\u0085\u009F"), "A???");
}

TEST(CleanText, BytesThatAreNotUtf8AreReplaced)
{
    const struct {
        std::string_view text, clean;
    } cases[] = {
        {"A\xFF"
         "B",
         "A?B"},
        {"\xC3", "?"},                // cut
        {"A\xE7\xAB", "A??"},         // cut
        {"\xC0\xAF", "??"},           // overlong
        {"\xE0\x80\xAF", "???"},      // overlong
        {"\xF0\x80\x80\xAF", "????"}, // overlong
        {"\xED\xA0\x80", "???"},      // surrogate
        {"\xF4\x90\x80\x80", "????"}, // above 10FFFF
        {"\xF8\x88\x80\x80\x80", "?????"},
        {"\xC3"
         "A",
         "?A"},
        {"\xE7\xAB"
         "A",
         "??A"},
        {"\xF0\x9F\x92"
         "A",
         "???A"},
        {"\xBF\xC3\xB6", "?\xC3\xB6"},
        {"\xEF\xBF\xBE\xEF\xBF\xBF", "??"}, // no characters of XML
    };
    for (const auto &[text, clean] : cases) {
        EXPECT_EQ(cleaned(text), clean);
    }
}

TEST(CleanText, IsCutAtAWholeCharacterAndTerminated)
{
    char out[4] = {'x', 'x', 'x', 'x'};
    EXPECT_EQ(cleanText("aböc", out), 2U);
    EXPECT_STREQ(out, "ab");
    EXPECT_EQ(cleanText("a  b", out), 1U) << "no blank at the end";
    EXPECT_STREQ(out, "a");
    EXPECT_EQ(cleanText("abcd", {out, 1}), 0U);
    EXPECT_STREQ(out, "");
    EXPECT_EQ(cleanText("abcd", {out, 0}), 0U);
}

TEST(CleanText, CleaningTwiceIsCleaningOnce)
{
    std::mt19937 random(1);
    for (int round = 0; round < 20000; ++round) {
        std::string text(random() % 40, '\0');
        for (char &c : text) {
            c = static_cast<char>(random() % 3 == 0 ? random() % 0x21 : random());
        }
        const std::string once = cleaned(text);
        EXPECT_EQ(cleaned(once), once);
        EXPECT_LE(once.size(), text.size());
    }
}

// Texts as attributes of an XML document, for a parser that is not ours.
std::string documentOf(const std::vector<std::string> &texts)
{
    std::string document = "<?xml version=\"1.0\" encoding=\"utf-8\"?>\n<all>\n";
    for (const std::string &text : texts) {
        document += "<text>";
        for (const char c : text) {
            document += c == '<' ? "&lt;" : c == '&' ? "&amp;" : c == '>' ? "&gt;" : std::string(1, c);
        }
        document += "</text>\n";
    }
    return document + "</all>\n";
}

bool parserReads(const std::string &document)
{
    std::FILE *const parser = ::popen("python3 -c 'import sys, xml.etree.ElementTree as e; "
                                      "e.fromstring(sys.stdin.buffer.read())' 2>/dev/null",
                                      "w");
    std::fwrite(document.data(), 1, document.size(), parser);
    return ::pclose(parser) == 0;
}

TEST(CleanText, EveryTextGivesXmlThatAStrictParserReads)
{
    if (!parserReads(documentOf({"a"}))) {
        GTEST_SKIP() << "needs python3";
    }
    std::vector<std::string> texts;
    for (int first = 0; first < 0x100; ++first) {
        texts.push_back({static_cast<char>(first)});
        for (int second = 0; second < 0x100; ++second) {
            texts.push_back({static_cast<char>(first), static_cast<char>(second)});
        }
    }
    for (const char *const boundary : {"\xE0\xA0\x80", "\xED\x9F\xBF", "\xED\xA0\x80", "\xEF\xBF\xBD", "\xEF\xBF\xBE",
                                       "\xF0\x90\x80\x80", "\xF4\x8F\xBF\xBF", "\xF4\x90\x80\x80", "\xEF\xB7\x90"}) {
        texts.emplace_back(boundary);
    }
    EXPECT_FALSE(parserReads(documentOf(texts))) << "the parser is strict";
    for (std::string &text : texts) {
        text = cleaned(text);
    }
    EXPECT_TRUE(parserReads(documentOf(texts)));
}

TEST(PublishedText, IsTheDevicesOwnWithoutTheLine)
{
    sim::Machine machine("{}");
    const char *const text = " A\xFF ";
    char buffer[8] = "";
    {
        const OptionsInForce off(machine, "");
        EXPECT_EQ(publishedText(text, buffer), text);
    }
    for (const char *const line : {"clean-text\n", "all\n"}) {
        const OptionsInForce on(machine, line);
        EXPECT_STREQ(publishedText(text, buffer), "A?");
    }
    EXPECT_EQ(publishedText(text, buffer), text);
}

} // namespace

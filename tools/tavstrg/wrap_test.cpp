// SPDX-License-Identifier: Apache-2.0
#include "tavstrg/wrap.h"

#include "tavstrg/terminal.h"

#include <gmock/gmock.h>

#include <string>

namespace {

using namespace tool;
using testing::ElementsAre;

TEST(Wrapped, BreaksAtBlanks)
{
    for (const size_t width : {size_t{0}, size_t{13}}) {
        EXPECT_THAT(wrapped("one two three", width, width), ElementsAre("one two three"));
    }
    EXPECT_THAT(wrapped("one two three", 12, 12), ElementsAre("one two", "three"));
    EXPECT_THAT(wrapped("one two three", 7, 7), ElementsAre("one two", "three"));
    EXPECT_THAT(wrapped("one two three", 3, 5), ElementsAre("one", "two", "three"));
    EXPECT_THAT(wrapped("", 5, 5), ElementsAre(""));
    EXPECT_THAT(wrapped("ab   ", 2, 2), ElementsAre("ab"));
    EXPECT_THAT(wrapped("   ", 2, 2), ElementsAre(""));
    EXPECT_THAT(wrapped("  ab cd", 5, 5), ElementsAre("  ab", "cd"));
}

TEST(Wrapped, TheFirstLineMayHaveAnotherWidth)
{
    EXPECT_THAT(wrapped("one two three four", 3, 10), ElementsAre("one", "two three", "four"));
    EXPECT_THAT(wrapped("one two three four", 10, 5), ElementsAre("one two", "three", "four"));
}

TEST(Wrapped, BreaksAWordThatIsLongerThanALine)
{
    EXPECT_THAT(wrapped("abcdefgh ij", 3, 3), ElementsAre("abc", "def", "gh", "ij"));
    EXPECT_THAT(wrapped("  abcdefgh", 4, 4), ElementsAre("  ab", "cdef", "gh"));
    EXPECT_THAT(wrapped("\u00e4\u00f6\u00fc\u4e2d\u6587", 4, 4), ElementsAre("\u00e4\u00f6\u00fc", "\u4e2d\u6587"));
    EXPECT_THAT(wrapped("\u4e2d", 1, 1), ElementsAre("\u4e2d")) << "no terminal is too narrow to end";
}

TEST(Wrapped, ACommaThatIsNearIsTheBetterPlace)
{
    EXPECT_THAT(wrapped("disk one, serial 12345", 17, 17), ElementsAre("disk one,", "serial 12345"));
    EXPECT_THAT(wrapped("a, serial number 12345", 17, 17), ElementsAre("a, serial number", "12345")) << "too far";
}

TEST(ColumnsOf, CountsWhatATerminalShows)
{
    EXPECT_EQ(columnsOf(""), 0U);
    EXPECT_EQ(columnsOf("disk"), 4U);
    EXPECT_EQ(columnsOf("│   ├── "), 8U);
    EXPECT_EQ(columnsOf("\u00fcber"), 4U);
    EXPECT_EQ(columnsOf("u\u0308ber"), 4U) << "combining";
    EXPECT_EQ(columnsOf("\u4e2d\u6587"), 4U) << "wide";
    EXPECT_EQ(columnsOf("\U0001f4be"), 2U) << "emoji";
    EXPECT_EQ(columnsOf("\xff\xe4x"), 3U) << "no UTF-8";
    EXPECT_EQ(columnsOf("\xe4\xb8"), 2U) << "cut off";
}

TEST(Fitted, IndentsTheRestOfEachLineBelowItsBegin)
{
    EXPECT_EQ(fitted("one two three\n  four five six\n\nend\n", 9), "one two\n"
                                                                    "    three\n"
                                                                    "  four\n"
                                                                    "      fiv\n"
                                                                    "      e\n"
                                                                    "      six\n"
                                                                    "\n"
                                                                    "end\n");
    EXPECT_EQ(fitted("one two three\n", 0), "one two three\n");
    EXPECT_EQ(fitted("", 5), "");
}

TEST(TwoColumns, TheRightOneGoesOnBelowItsBegin)
{
    const Rows rows = {{"Index", "1"}, {"Ver\u00e4nderung", "a text of several words"}, {"Empty", ""}};
    EXPECT_EQ(twoColumns(rows, 0), "  Index        1\n"
                                   "  Ver\u00e4nderung  a text of several words\n"
                                   "  Empty\n");
    EXPECT_EQ(twoColumns(rows, 35), "  Index        1\n"
                                    "  Ver\u00e4nderung  a text of several\n"
                                    "               words\n"
                                    "  Empty\n");
}

TEST(TwoColumns, PutsTextThatDoesNotFitOnTheNextLine)
{
    EXPECT_EQ(twoColumns({{"Index", "1"}, {"Property", "a long text"}}, 20), "  Index     1\n"
                                                                             "  Property\n"
                                                                             "    a long text\n");
}

struct WidthCase {
    bool terminal;
    unsigned reported;
    const char *columns;
    size_t width;
};

TEST(LineWidth, IsTheTerminalsElseThatOfTheVariableElse80)
{
    for (const WidthCase &given : {WidthCase{false, 132, "132", 0},
                                   {true, 132, "40", 132},
                                   {true, 0, "40", 40},
                                   {true, 0, nullptr, 80},
                                   {true, 0, "", 80},
                                   {true, 0, "0", 80},
                                   {true, 0, "-4", 80},
                                   {true, 0, "40x", 80},
                                   {true, 0, "99999999999", 80}}) {
        EXPECT_EQ(lineWidth(given.terminal, given.reported, given.columns), given.width)
            << (given.columns == nullptr ? "none" : given.columns);
    }
}

} // namespace

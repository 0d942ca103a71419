// SPDX-License-Identifier: Apache-2.0
#include "collect/inf/inf_parse.h"

#include "collect/base/attribute.h"
#include "collect/base/text_scan.h"
#include "collect/inf/inf_section.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

using namespace tavstrg;

namespace {

using namespace std::string_literals;

constexpr char kBothSections[] = "[Management Port]\nahci\n[Diagnostic Port]\nisci\n";

struct Split {
    bool usable;
    std::string first;
    std::string second;
    bool operator==(const Split &) const = default;
};

std::ostream &operator<<(std::ostream &out, const Split &split)
{
    return out << split.usable << " first=[" << split.first << "] second=[" << split.second << "]";
}

Split split(std::string_view text)
{
    InfSections sections;
    const bool usable = splitInfSections(text, kGroupManagementPort, kGroupDiagnosticPort, sections);
    return {usable, std::string(sections.first), std::string(sections.second)};
}

struct Line {
    DriverLine kind;
    std::string name;
};

Line parse(std::string_view text)
{
    std::string_view name;
    const DriverLine kind = parseDriverLine(text, name);
    return {kind, std::string(name)};
}

} // namespace

TEST(SplitInfSections, TwoHeadersInOrderDivideTheText)
{
    EXPECT_EQ(split(kBothSections), (Split{true, "ahci\n", "isci\n"}));
}

TEST(SplitInfSections, AFileWithoutAnyHeaderIsTheFirstSection)
{
    EXPECT_EQ(split("ahci\nmegaraid_sas"), (Split{true, "ahci\nmegaraid_sas", ""}));
    EXPECT_EQ(split(""), (Split{true, "", ""}));
}

TEST(SplitInfSections, TextBeforeTheFirstHeaderIsIgnored)
{
    EXPECT_EQ(split("# drivers\nold\n" + std::string(kBothSections)), (Split{true, "ahci\n", "isci\n"}));
}

TEST(SplitInfSections, OnlyOneHeaderIsNotUsable)
{
    EXPECT_FALSE(split("[Management Port]\nahci\n").usable);
    EXPECT_FALSE(split("[Diagnostic Port]\nisci\n").usable);
}

TEST(SplitInfSections, TheSecondHeaderBeforeTheFirstIsNotUsable)
{
    EXPECT_FALSE(split("[Diagnostic Port]\nisci\n[Management Port]\nahci\n").usable);
}

TEST(SplitInfSections, AllowsOnlySpacesAndTabsBeforeAHeader)
{
    EXPECT_EQ(split(" \t[Management Port]\nahci\n\t[Diagnostic Port]\nisci"), (Split{true, "ahci\n", "isci"}));
    EXPECT_EQ(split("\r[Management Port]\nahci\n"), (Split{true, "\r[Management Port]\nahci\n", ""}));
}

TEST(SplitInfSections, OtherTextBeforeAHeaderHidesIt)
{
    EXPECT_EQ(split("# [Management Port]\nahci\n"), (Split{true, "# [Management Port]\nahci\n", ""}));
    EXPECT_EQ(split("x [Management Port] [Management Port]\n[Management Port]\na\n[Diagnostic Port]\n"),
              (Split{true, "a\n", ""}));
}

TEST(SplitInfSections, WhatFollowsAHeaderOnItsLineBelongsToNoSection)
{
    EXPECT_EQ(split("[Management Port] names\nahci\n[Diagnostic Port]# other\nisci"), (Split{true, "ahci\n", "isci"}));
}

TEST(SplitInfSections, ASecondHeaderOnTheLineOfTheFirstIsNone)
{
    EXPECT_FALSE(split("[Management Port][Diagnostic Port]\nahci\n").usable);
}

TEST(SplitInfSections, ARepeatedHeaderStaysInItsSection)
{
    EXPECT_EQ(split("[Management Port]\na\n[Management Port]\nb\n[Diagnostic Port]\n[Diagnostic Port]\n"),
              (Split{true, "a\n[Management Port]\nb\n", "[Diagnostic Port]\n"}));
}

TEST(SplitInfSections, TheLastHeaderMayEndTheFile)
{
    EXPECT_EQ(split("[Management Port]\n[Diagnostic Port]"), (Split{true, "", ""}));
}

TEST(TakeLine, GivesEachLineOnceWithoutItsNewline)
{
    std::string_view rest = "a\n\nb";
    std::vector<std::string> lines;
    std::string_view line;
    while (takeLine(rest, line)) {
        lines.emplace_back(line);
    }
    EXPECT_EQ(lines, (std::vector<std::string>{"a", "", "b"}));
}

TEST(ParseDriverLine, IgnoresBlanksFurtherWordsAndComment)
{
    const Line line = parse(" \t megaraid_sas   the RAID one # and a comment\n");
    EXPECT_EQ(line.kind, DriverLine::name);
    EXPECT_EQ(line.name, "megaraid_sas");
}

TEST(ParseDriverLine, TheUsableTextEndsAtACommentALineEndOrTheText)
{
    for (const char *text :
         {"ahci", "ahci\n", "ahci\r\n", "ahci \t\r", "ahci#x", "ahci # x", "ahci\rnever", "ahci\tx"}) {
        const Line line = parse(text);
        EXPECT_EQ(line.kind, DriverLine::name) << text;
        EXPECT_EQ(line.name, "ahci") << text;
    }
}

TEST(ParseDriverLine, ReportsWhyALineHasNoName)
{
    const std::pair<std::string, DriverLine> cases[] = {
        {"# comment", DriverLine::comment},
        {" \t# comment", DriverLine::comment},
        {"", DriverLine::blank},
        {" \t\r\n", DriverLine::blank},
        {"[Management Port]", DriverLine::header},
        {"ahci [Diagnostic Port]", DriverLine::header},
        {"# see [Management Port]", DriverLine::header},
        {std::string(257, 'a'), DriverLine::tooLong},
        {std::string(250, ' ') + "[Management Port]", DriverLine::tooLong},
    };
    for (const auto &[text, kind] : cases) {
        EXPECT_EQ(parse(text).kind, kind) << text;
    }
}

TEST(ParseDriverLine, ANameOf65CharactersIsRefusedAnd64AreAccepted)
{
    EXPECT_EQ(parse(std::string(65, 'n')).kind, DriverLine::nameTooLong);
    const Line longest = parse(std::string(64, 'n') + " x");
    EXPECT_EQ(longest.kind, DriverLine::name);
    EXPECT_EQ(longest.name, std::string(64, 'n'));
}

TEST(ParseDriverLine, ALineIsMeasuredWithoutItsEnd)
{
    const std::string longest = "ahci" + std::string(252, ' ');
    EXPECT_EQ(parse(longest + "\n").kind, DriverLine::name);
    EXPECT_EQ(parse(longest + "\r\n").kind, DriverLine::name);
    EXPECT_EQ(parse(longest + " \n").kind, DriverLine::tooLong);
}

TEST(AttributeValue, DropsLeadingSpacesAndTrailingOnesBeforeANewline)
{
    EXPECT_EQ(attributeValue("QEMU    \n"), "QEMU");
    EXPECT_EQ(attributeValue("  QEMU HARDDISK   \nmore\n"), "QEMU HARDDISK");
    EXPECT_EQ(attributeValue("\n"), "");
    EXPECT_EQ(attributeValue("   \n"), "");
    EXPECT_EQ(attributeValue(""), "");
}

TEST(AttributeValue, KeepsTrailingSpacesWhereNoNewlineIs)
{
    EXPECT_EQ(attributeValue("QEMU    "), "QEMU    ");
}

TEST(AttributeValue, TabsAreNoSpaces)
{
    EXPECT_EQ(attributeValue("\tx\t\n"), "\tx\t");
}

TEST(AttributeValue, IsCutTo63CharactersAfterTrimming)
{
    EXPECT_EQ(attributeValue("  " + std::string(100, 'v') + "\n"), std::string(63, 'v'));
    EXPECT_EQ(attributeValue(std::string(62, 'v') + "   x\n"), std::string(62, 'v') + " ");
}

TEST(AttributeValue, EndsAtTheFirstNul)
{
    EXPECT_EQ(attributeValue("ab\0cd\n"s), "ab");
}

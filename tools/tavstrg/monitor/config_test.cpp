// SPDX-License-Identifier: Apache-2.0
#include "tavstrg/monitor/config.h"

#include "support/tool_fixture.h"

#include <gmock/gmock.h>

namespace {

using namespace tool::monitor;
using testing::HasSubstr;

std::string complaintOf(const std::string &line)
{
    const ParsedConfig parsed = parseConfig(line);
    return problemLines("F", parsed.problems);
}

TEST(MonitorConfig, EmptyFileIsTheDefaults)
{
    const ParsedConfig parsed = parseConfig("# nothing\n\n   # cycle = 1\n");
    EXPECT_TRUE(parsed.problems.empty());
    EXPECT_EQ(parsed.config, Config{});
}

TEST(MonitorConfig, SettingsAreTaken)
{
    const ParsedConfig parsed = parseConfig("cycle=60\r\n state = /a b/c \njournal=no\nhooks = no\nlines = /l#1\n"
                                            "lines-kilobytes = 16\nagent = yes\nmetrics\t=\tno");
    EXPECT_EQ(problemLines("F", parsed.problems), "");
    EXPECT_EQ(parsed.config, (Config{60, "/a b/c", "", "", "/l#1", 16, true, ""}));
    EXPECT_EQ(parseConfig("journal = yes").config.journal, Config{}.journal);
    EXPECT_EQ(parseConfig("journal = /j").config.journal, "/j");
}

TEST(MonitorConfig, BadLinesAreReportedWithTheirNumber)
{
    EXPECT_EQ(complaintOf("\ncycel = 3"), "F:2: unknown name \"cycel\"; did you mean cycle?");
    EXPECT_EQ(complaintOf("cycle"), "F:1: is not NAME = VALUE");
    EXPECT_EQ(complaintOf("cycle = 9"), "F:1: cycle must be a number from 10 to 86400, not \"9\"");
    EXPECT_EQ(complaintOf("cycle = 60s"), "F:1: cycle must be a number from 10 to 86400, not \"60s\"");
    EXPECT_EQ(complaintOf("cycle ="), "F:1: cycle must be a number from 10 to 86400, not \"\"");
    EXPECT_THAT(complaintOf("state = no"), HasSubstr("F:1: state must be a path"));
    EXPECT_THAT(complaintOf("state = var/lib"), HasSubstr("F:1: state must be a path"));
    EXPECT_THAT(complaintOf("hooks = true"), HasSubstr("F:1: hooks must be \"no\" or a path"));
    EXPECT_THAT(complaintOf("agent = 1"), HasSubstr("F:1: agent must be \"yes\" or \"no\""));
    EXPECT_EQ(complaintOf("cycle = 60\ncycle = 60"), "F:2: cycle is set in line 1 already");
    EXPECT_EQ(complaintOf("lines = /a\x01z"), "F:1: lines contains a control character");
    EXPECT_EQ(complaintOf("= 1\nx y"), "F:1: unknown name \"\"\nF:2: is not NAME = VALUE");
}

TEST(MonitorConfig, ShippedFileShowsTheDefaults)
{
    const std::string shipped = tool::testing_support::contentOf(TAV_SOURCE_DIR "/packaging/monitor/monitor.conf");
    EXPECT_EQ(parseConfig(shipped).config, Config{});
    EXPECT_EQ(problemLines("F", parseConfig(shipped).problems), "");
    std::string taken; // the lines that set something, without the sign
    std::istringstream lines(shipped);
    for (std::string line; std::getline(lines, line);) {
        taken += line.starts_with("#") && !line.starts_with("# ") ? line.substr(1) + "\n" : "\n";
    }
    EXPECT_EQ(problemLines("F", parseConfig(taken).problems), "");
    EXPECT_EQ(parseConfig(taken).config, Config{});
    for (const char *name : {"cycle", "state", "journal", "hooks", "lines", "lines-kilobytes", "agent", "metrics"}) {
        EXPECT_THAT(taken, HasSubstr("\n" + std::string(name) + " = "));
    }
}

TEST(MonitorConfig, FileThatIsMissingIsAProblemOnlyIfItWasNamed)
{
    EXPECT_TRUE(readConfig("/nowhere/x", false).problems.empty());
    EXPECT_EQ(problemLines("F", readConfig("/nowhere/x", true).problems), "F: No such file or directory");
    EXPECT_EQ(problemLines("F", readConfig("/dev/null", true).problems), "F: is not a regular file");
}

} // namespace

// SPDX-License-Identifier: Apache-2.0
#include "runtime/options.h"

#include "runtime/trace.h"
#include "sim/sim.h"
#include "support/trace_recorder.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <string>
#include <vector>

using namespace tavstrg;

namespace {

const char kOptionsFile[] = "/opt/qlm/tavkit_sa/data/options.inf";

Options only(Option option)
{
    Options options;
    options.add(option);
    return options;
}

TEST(OptionText, EachNameSwitchesOnItsOption)
{
    for (const OptionName &known : kOptionNames) {
        EXPECT_EQ(parseOptions(std::string(known.line) + "\n"), only(known.option)) << known.line;
    }
}

TEST(OptionText, AllSwitchesOnEveryOption)
{
    const Options all = parseOptions("all");
    for (const OptionName &known : kOptionNames) {
        EXPECT_TRUE(all.has(known.option)) << known.line;
    }
}

TEST(OptionText, IsReadLineByLine)
{
    const struct {
        const char *what;
        std::string text;
        Options options;
    } cases[] = {
        {"nothing", "", {}},
        {"blank lines", "\n \t\n\r\n", {}},
        {"a comment", "#disk-names\n  # disk-names\n", {}},
        {"blanks around the name", " \tdisk-names \t\n", only(Option::diskNames)},
        {"a line's end of two characters", "disk-names\r\n", only(Option::diskNames)},
        {"no newline at the end", "\ndisk-names", only(Option::diskNames)},
        {"a comment behind the name", "disk-names# the right node\n", only(Option::diskNames)},
        {"the case counts", "Disk-Names\n", {}},
        {"a longer name", "disk-names2\n", {}},
        {"a shorter name", "disk-name\n", {}},
        {"a byte order mark",
         "\xEF\xBB\xBF"
         "disk-names\n",
         only(Option::diskNames)},
        {"text after a NUL", std::string("#\0\ndisk-names\n", 14), {}},
    };
    for (const auto &c : cases) {
        EXPECT_EQ(parseOptions(c.text), c.options) << c.what;
    }
    Options two = only(Option::uevents);
    two.add(Option::cleanText);
    EXPECT_EQ(parseOptions("uevents\nunknown\nclean-text\nuevents\n"), two);
}

TEST(OptionText, LinesKeepTheirNumbers)
{
    OptionLines lines("# first\n\nuevents\n  nonsense # third\n");
    ASSERT_TRUE(lines.next());
    EXPECT_EQ(lines.name(), "uevents");
    EXPECT_EQ(lines.line(), 3);
    ASSERT_TRUE(lines.next());
    EXPECT_EQ(lines.name(), "nonsense");
    EXPECT_EQ(lines.line(), 4);
    EXPECT_FALSE(lines.next());
}

class OptionsFile : public testing::Test {
protected:
    OptionsFile() { takeOptions(); }
    ~OptionsFile() override
    {
        machine.remove(kOptionsFile);
        takeOptions();
    }

    sim::Machine machine{"{}"};
    TraceRecorder trace;
};

TEST_F(OptionsFile, AnOptionThatWasOffWhenTheFileWasReadIsNotAskedForAgain)
{
    machine.write(kOptionsFile, "every-disk\n");
    takeOptions();
    EXPECT_TRUE(mayBeOn(Option::everyDisk));
    EXPECT_FALSE(mayBeOn(Option::uevents));
    machine.remove(kOptionsFile);
    takeOptions();
    EXPECT_FALSE(mayBeOn(Option::everyDisk));
}

TEST_F(OptionsFile, WithoutItNothingIsOnAndNothingIsTraced)
{
    EXPECT_EQ(takeOptions(), Options{});
    EXPECT_EQ(currentOptions(), Options{});
    EXPECT_TRUE(trace.records().empty());
}

TEST_F(OptionsFile, IsReadAgainEachTime)
{
    machine.write(kOptionsFile, "uevents\n");
    EXPECT_EQ(takeOptions(), only(Option::uevents));
    EXPECT_EQ(currentOptions(), only(Option::uevents));
    machine.write(kOptionsFile, "clean-text\n");
    EXPECT_EQ(takeOptions(), only(Option::cleanText));
    machine.remove(kOptionsFile);
    EXPECT_EQ(takeOptions(), Options{});
    EXPECT_EQ(currentOptions(), Options{});
    EXPECT_TRUE(trace.records().empty());
}

TEST_F(OptionsFile, CanBeAskedForOneOptionWithoutATrace)
{
    EXPECT_FALSE(isInOptionsFile(Option::everyDisk));
    machine.write(kOptionsFile, "every-disk\nno-such-thing\n");
    EXPECT_TRUE(isInOptionsFile(Option::everyDisk));
    EXPECT_FALSE(isInOptionsFile(Option::uevents));
    EXPECT_EQ(currentOptions(), Options{});
    machine.write(kOptionsFile, "all\n");
    EXPECT_TRUE(isInOptionsFile(Option::everyDisk));
    machine.write(kOptionsFile, "every-disk\n");
    EXPECT_TRUE(trace.records().empty());
    takeOptions();
    machine.remove(kOptionsFile);
    EXPECT_FALSE(isInOptionsFile(Option::everyDisk));
    machine.makeDirectory(kOptionsFile); // cannot be read
    EXPECT_TRUE(isInOptionsFile(Option::everyDisk)) << "as it was read last";
    EXPECT_FALSE(isInOptionsFile(Option::uevents));
}

TEST_F(OptionsFile, IsBesideTheOtherFilesOfTheAgent)
{
    machine.write("/etc/tavkit/tavkit.conf", "TavDir /opt/qlm/tavkit_sa/other\n");
    machine.write("/opt/qlm/tavkit_sa/other/data/options.inf", "uevents\n");
    EXPECT_EQ(takeOptions(), only(Option::uevents));
    EXPECT_TRUE(trace.records().empty());
}

TEST_F(OptionsFile, AnUnknownNameIsTracedOnce)
{
    machine.write(kOptionsFile, "uevents\nno-such-thing\n");
    EXPECT_EQ(takeOptions(), only(Option::uevents));
    EXPECT_EQ(takeOptions(), only(Option::uevents));
    ASSERT_EQ(trace.records().size(), 1U);
    EXPECT_TRUE(trace.has(kFailure, "options.inf line 2: unknown option [no-such-thing]"));
    machine.write(kOptionsFile, "uevents\nno-such-thing\nother\n");
    takeOptions();
    EXPECT_EQ(trace.records().size(), 3U) << "a file that has changed is told again";
}

TEST_F(OptionsFile, OneThatCannotBeReadLeavesTheOptionsAsTheyWere)
{
    machine.write(kOptionsFile, "uevents\n");
    takeOptions();
    machine.write(kOptionsFile, std::string(kMaxOptionsSize + 1, '#'));
    EXPECT_EQ(takeOptions(), only(Option::uevents));
    EXPECT_EQ(takeOptions(), only(Option::uevents));
    EXPECT_EQ(currentOptions(), only(Option::uevents));
    EXPECT_EQ(trace.records().size(), 1U);
    EXPECT_TRUE(trace.has(kFailure, std::string(kOptionsFile) + " is not read, the options stay: errno=[27]"));
}

TEST_F(OptionsFile, OfTheLargestSizeIsRead)
{
    std::string text = "uevents\n";
    text.resize(kMaxOptionsSize, '#');
    machine.write(kOptionsFile, text);
    EXPECT_EQ(takeOptions(), only(Option::uevents));
}

TEST_F(OptionsFile, ADirectoryInItsPlaceIsNotRead)
{
    machine.write(std::string(kOptionsFile) + "/inside", "uevents\n");
    EXPECT_EQ(takeOptions(), Options{});
    EXPECT_TRUE(trace.has(kFailure, std::string(kOptionsFile) + " is not read, the options stay: errno=[22]"));
    machine.remove(std::string(kOptionsFile) + "/inside");
}

} // namespace

// SPDX-License-Identifier: Apache-2.0
#include "tavstrg/arguments.h"

#include <gmock/gmock.h>

#include <unistd.h>

#include <cstdlib>
#include <ostream>
#include <sstream>

namespace {

using namespace tool;
using testing::HasSubstr;
using testing::Not;

Parsed parse(std::vector<const char *> words)
{
    words.insert(words.begin(), "tavstrg");
    return parseArguments(static_cast<int>(words.size()), words.data());
}

Arguments parsed(const std::vector<const char *> &words)
{
    const Parsed result = parse(words);
    EXPECT_TRUE(result.arguments) << result.text;
    return result.arguments.value_or(Arguments{});
}

TEST(ParseArguments, GlobalOptionsStandBeforeOrAfterTheCommand)
{
    for (const auto &words :
         {std::vector<const char *>{"--json", "--machine", "m.json", "--provider", "p.so", "--service-mode", "show",
                                    "--verbose"},
          {"show", "-v", "--json", "--machine", "m.json", "--provider", "p.so", "--service-mode"}}) {
        const Arguments arguments = parsed(words);
        EXPECT_EQ(arguments.command, Command::show);
        EXPECT_TRUE(arguments.json);
        EXPECT_TRUE(arguments.verbose);
        EXPECT_TRUE(arguments.serviceMode);
        EXPECT_EQ(arguments.machine, "m.json");
        EXPECT_EQ(arguments.provider, "p.so");
    }
}

TEST(ParseArguments, NothingIsOnUnlessAsked)
{
    const Arguments arguments = parsed({"show"});
    EXPECT_FALSE(arguments.json || arguments.verbose || arguments.serviceMode || arguments.raw);
    EXPECT_EQ(arguments.machine, "");
    EXPECT_EQ(arguments.provider, "");
}

TEST(ParseArguments, ClassNamesComeOutInTheirRightSpelling)
{
    EXPECT_EQ(parsed({"enum", "harddisk"}).className, "TAV_StorageHardDisk");
    EXPECT_EQ(parsed({"enum", "TAV_STORAGEtape"}).className, "TAV_StorageTape");
    EXPECT_EQ(parsed({"enum", "harddisk"}).command, Command::enumerate);
}

TEST(ParseArguments, RawSendsNamesAsTheyAre)
{
    const Arguments arguments = parsed({"enum", "--raw", "tav_storagetape"});
    EXPECT_TRUE(arguments.raw);
    EXPECT_EQ(arguments.className, "tav_storagetape");
    const Arguments call = parsed({"call", "--raw", "Nothing", "doit", "a=b"});
    EXPECT_EQ(call.className, "Nothing");
    EXPECT_EQ(call.method, "doit");
    EXPECT_EQ(call.methodArguments.at(0).name, "a");
}

TEST(ParseArguments, GetTakesAnIndexForAnIndexedClassOnly)
{
    EXPECT_EQ(parsed({"get", "HardDisk", "2"}).index, "2");
    EXPECT_EQ(parsed({"get", "Config"}).index, std::nullopt);
    EXPECT_EQ(parsed({"get", "--raw", "Whatever"}).index, std::nullopt);
    EXPECT_EQ(parse({"get", "HardDisk"}).status, kWrongUsage);
    EXPECT_EQ(parse({"get", "Config", "1"}).status, kWrongUsage);
}

TEST(ParseArguments, CallTakesAssignmentsInTheOrderGiven)
{
    const Arguments arguments = parsed({"call", "config", "setmonitorcycle", "monitorcycle=120"});
    EXPECT_EQ(arguments.command, Command::call);
    EXPECT_EQ(arguments.className, "TAV_StorageConfig");
    EXPECT_EQ(arguments.method, "SetMonitorCycle");
    ASSERT_EQ(arguments.methodArguments.size(), 1U);
    EXPECT_EQ(arguments.methodArguments[0].name, "MonitorCycle");
    EXPECT_EQ(arguments.methodArguments[0].value, "120");
    EXPECT_EQ(parsed({"call", "--raw", "Config", "Set", "Cycle=a=b"}).methodArguments[0].value, "a=b");
    EXPECT_EQ(parsed({"call", "--raw", "Config", "Set", "Cycle="}).methodArguments[0].value, "");
    EXPECT_TRUE(parsed({"call", "--raw", "Config", "Set"}).methodArguments.empty());
}

TEST(ParseArguments, AnEmptyNameIsWrongUsage)
{
    for (const auto &words : {std::vector<const char *>{"--machine", "", "show"},
                              {"show", "--machine="},
                              {"show", "--provider", ""},
                              {"check", "--root", ""},
                              {"metrics", "--output", ""},
                              {"show", "--machine", "m", "--state", ""}}) {
        EXPECT_EQ(parse(words).status, kWrongUsage);
    }
    EXPECT_EQ(parse({"show", "--state", "d"}).status, kWrongUsage) << "this machine's agent has its own";
    EXPECT_EQ(parsed({"show", "--machine", "m", "--state", "d"}).state, "d");
}

// As another user, since root's environment is ignored.
TEST(TakeEnvironment, NamesAMachineWhereTheCommandLineNamesNoneAndNeverForRoot)
{
    setenv("TAVSIM_MACHINE", "e.json", 1);
    setenv("TAVSIM_STATE", "kept", 1);
    const auto taken = [](std::vector<const char *> words) {
        Arguments arguments = parsed(words);
        return takeEnvironment(arguments) ? arguments.machine + " " + arguments.state : "none";
    };
    if (geteuid() == 0) {
        EXPECT_EQ(taken({"show"}), "none");
    }
    EXPECT_EXIT(
        {
            constexpr uid_t kNobody = 65534;
            const bool other = geteuid() != 0 || setuid(kNobody) == 0;
            const bool right = taken({"show"}) == "e.json kept" && taken({"show", "--machine", "m"}) == "none" &&
                               taken({"classes"}) == "none" && taken({"check", "--root", "d"}) == "none";
            exit(other && right ? 0 : 1);
        },
        testing::ExitedWithCode(0), "");
    unsetenv("TAVSIM_MACHINE");
    unsetenv("TAVSIM_STATE");
}

TEST(ParseArguments, WatchKeepsTheConfiguredCycleUnlessToldOne)
{
    EXPECT_EQ(parsed({"watch"}).command, Command::watch);
    EXPECT_EQ(parsed({"watch"}).cycle, 0);
    for (const char *cycle : {"10", "3600"}) {
        EXPECT_EQ(parsed({"watch", "--cycle", cycle, "--json"}).cycle, std::stoi(cycle));
    }
}

TEST(ParseArguments, FilesOfMetricsDumpStateAndCheck)
{
    EXPECT_EQ(parsed({"metrics"}).command, Command::metrics);
    EXPECT_EQ(parsed({"metrics"}).output, "");
    EXPECT_FALSE(parsed({"metrics"}).ofClasses);
    EXPECT_EQ(parsed({"report", "a.html"}).output, "a.html");
    EXPECT_EQ(parsed({"report", "-"}).output, "") << "standard output";
    EXPECT_EQ(parsed({"metrics", "--output", "a.prom", "--machine", "m.json"}).output, "a.prom");
    EXPECT_EQ(parsed({"dump-state", "--json", "state.dat"}).command, Command::dumpState);
    EXPECT_EQ(parsed({"dump-state", "--json", "state.dat"}).file, "state.dat");
    EXPECT_EQ(parsed({"check"}).root, "");
    EXPECT_EQ(parsed({"check", "--root=site"}).root, "site");
}

TEST(ParseArguments, CommandsAreNamedAsTheyAreGiven)
{
    for (const std::vector<const char *> &words :
         std::vector<std::vector<const char *>>{{"show"},
                                                {"enum", "Tape"},
                                                {"get", "Config"},
                                                {"classes"},
                                                {"watch"},
                                                {"call", "Thread", "StopMonitoringThread"},
                                                {"check"},
                                                {"metrics"},
                                                {"report", "f"},
                                                {"record", "f"},
                                                {"disks"},
                                                {"disk", "sda"},
                                                {"health"},
                                                {"monitor"},
                                                {"dump-state", "f"}}) {
        EXPECT_STREQ(commandName(parsed(words).command), words[0]);
    }
}

TEST(ParseArguments, HelpFitsAnUsualTerminal)
{
    for (const char *command :
         {"", "show", "enum", "get", "call", "classes", "watch", "check", "metrics", "report", "dump-state"}) {
        const Parsed help = *command == '\0' ? parse({"--help"}) : parse({command, "--help"});
        std::istringstream lines(help.text);
        for (std::string line; std::getline(lines, line);) {
            EXPECT_LE(line.size(), 80U) << command << ": " << line;
        }
    }
}

TEST(ParseArguments, ColourIsLeftToTheTerminalUnlessToldOtherwise)
{
    EXPECT_EQ(parsed({"show"}).colour, ColourWhen::automatic);
    EXPECT_EQ(parsed({"show", "--color=auto"}).colour, ColourWhen::automatic);
    EXPECT_EQ(parsed({"--color=always", "show"}).colour, ColourWhen::always);
    EXPECT_EQ(parsed({"watch", "--color", "never"}).colour, ColourWhen::never);
}

TEST(ParseArguments, HelpOfEveryCommandIsForStandardOutput)
{
    for (const char *command :
         {"show", "enum", "get", "call", "classes", "watch", "check", "metrics", "report", "dump-state"}) {
        const Parsed help = parse({command, "--help"});
        EXPECT_FALSE(help.arguments) << command;
        EXPECT_EQ(help.status, kDone) << command;
        EXPECT_THAT(help.text, HasSubstr("Usage: tavstrg " + std::string(command)));
    }
    const Parsed help = parse({"--help"});
    EXPECT_EQ(help.status, kDone);
    for (const char *word :
         {"show", "enum", "get", "call", "classes", "watch", "--color", "NO_COLOR", "--json", "--machine", "--provider",
          "--service-mode", "--version", "Exit status: 0", "machine file that cannot be read"}) {
        EXPECT_THAT(help.text, HasSubstr(word));
    }
    EXPECT_THAT(parse({"--help-all"}).text, HasSubstr("--verbose"));
}

TEST(ParseArguments, VersionIsNameAndNumber)
{
    const Parsed version = parse({"--version"});
    EXPECT_EQ(version.status, kDone);
    EXPECT_THAT(version.text, testing::MatchesRegex("tavstrg [0-9]+\\.[0-9]+\\.[0-9]+\n"));
}

struct WrongUsage {
    std::vector<const char *> words;
    const char *message;
};

void PrintTo(const WrongUsage &usage, std::ostream *out)
{
    for (const char *word : usage.words) {
        *out << word << ' ';
    }
}

class WrongUsages : public testing::TestWithParam<WrongUsage> {};

TEST_P(WrongUsages, AreToldInOneLine)
{
    const Parsed result = parse(GetParam().words);
    EXPECT_FALSE(result.arguments);
    EXPECT_EQ(result.status, kWrongUsage);
    EXPECT_THAT(result.text, HasSubstr(GetParam().message));
    EXPECT_THAT(result.text, Not(HasSubstr("\n")));
}

INSTANTIATE_TEST_SUITE_P(
    All, WrongUsages,
    testing::Values(
        WrongUsage{{}, "a command is required"}, WrongUsage{{"list"}, "list"},
        WrongUsage{{"--json"}, "a command is required"}, WrongUsage{{"show", "extra"}, "extra"},
        WrongUsage{{"show", "--unknown"}, "--unknown"}, WrongUsage{{"show", "--machine"}, "--machine"},
        WrongUsage{{"show", "enum", "Tape"}, "enum"}, WrongUsage{{"enum"}, "CLASS"},
        WrongUsage{{"enum", "Discs"}, "unknown class \"Discs\""}, WrongUsage{{"enum", "Tape", "1"}, "1"},
        WrongUsage{{"watch", "--cycle", "9"}, "--cycle"}, WrongUsage{{"watch", "--cycle", "3601"}, "--cycle"},
        WrongUsage{{"watch", "--cycle", "soon"}, "--cycle"}, WrongUsage{{"show", "--cycle", "30"}, "--cycle"},
        WrongUsage{{"show", "--color=red"}, "--color"}, WrongUsage{{"show", "--color"}, "--color"},
        WrongUsage{{"get"}, "CLASS"}, WrongUsage{{"get", "Tape"}, "TAV_StorageTape needs an INDEX"},
        WrongUsage{{"get", "Thread", "1"}, "TAV_StorageThread has one instance, without INDEX"},
        WrongUsage{{"metrics", "--output"}, "--output"}, WrongUsage{{"metrics", "x"}, "x"},
        WrongUsage{{"metrics", "--book", "b", "--from-book", "b"}, "exclude each other"},
        WrongUsage{{"metrics", "--classes", "--book", "b"}, "--classes has no book"}, WrongUsage{{"report"}, "FILE"},
        WrongUsage{{"report", ""}, "report: FILE must not be empty"},
        WrongUsage{{"record", ""}, "record: FILE must not be empty"},
        WrongUsage{{"--json", "report", "f"}, "--json disks"}, WrongUsage{{"show", "--output", "f"}, "--output"},
        WrongUsage{{"dump-state"}, "FILE"}, WrongUsage{{"dump-state", "f", "g"}, "g"},
        WrongUsage{{"check", "--root", "d", "--machine", "m"}, "exclude each other"},
        WrongUsage{{"monitor", "--machine", "m"}, "needs --config"}, WrongUsage{{"call", "Config"}, "METHOD"},
        WrongUsage{{"call", "Tape", "Rewind"}, "TAV_StorageTape has no method \"Rewind\""},
        WrongUsage{{"call", "Config", "SetMonitorCycle", "120"}, "\"120\" is not NAME=VALUE"},
        WrongUsage{{"call", "Config", "SetMonitorCycle", "=120"}, "\"=120\" is not NAME=VALUE"},
        WrongUsage{{"call", "Config", "SetMonitorCycle", "Cycle=120"},
                   "TAV_StorageConfig.SetMonitorCycle has no argument \"Cycle\""}));

} // namespace

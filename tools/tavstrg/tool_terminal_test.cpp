// SPDX-License-Identifier: Apache-2.0
// What the built tool prints on a terminal: lines fit it, and nothing is lost.

#include "support/tool_fixture.h"
#include "support/tool_state.h"
#include "tavstrg/wrap.h"

#include <gmock/gmock.h>

#include <csignal>
#include <ostream>
#include <sstream>

namespace {

using namespace tool::testing_support;
using testing::HasSubstr;

struct Printed {
    const char *name;
    std::vector<std::string> words;
};

void PrintTo(const Printed &printed, std::ostream *out)
{
    *out << printed.name;
}

// Content of the lines, without the characters that draw the tree or separate words.
std::string contentOfLines(std::string text)
{
    for (const char *drawn : {"├── ", "└── ", "│", " ", "\n"}) {
        const std::string what = drawn;
        for (size_t at = text.find(what); at != std::string::npos; at = text.find(what, at)) {
            text.erase(at, what.size());
        }
    }
    return text;
}

void expectToFit(const std::string &text, size_t columns)
{
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
        EXPECT_LE(tool::columnsOf(line), columns) << line;
    }
}

class OnATerminal : public ToolTest, public testing::WithParamInterface<Printed> {
protected:
    // Words of the test with its own files in them.
    std::vector<std::string> words() const
    {
        std::vector<std::string> all = {kTool, "--color=never"};
        for (std::string word : GetParam().words) {
            if (word == "MACHINE") {
                word = std::string(TAV_SOURCE_DIR) + "/examples/machines/failing.json";
            }
            all.push_back(word.starts_with("./") ? (directory_ / word.substr(2)).string() : word);
        }
        return all;
    }
};

TEST_P(OnATerminal, NoLineIsWiderAndNothingIsLost)
{
    const std::filesystem::path site = directory_ / "größe-der-站点";
    std::filesystem::create_directory(site);
    write("größe-der-站点/storage.inf", "ahci\n[Diagnostic Port]\n" + std::string(64, 'n') + "\n");
    write("größe-der-站点/noscsi.inf", "Vendor: ACME Model: A DISK OF MANY WORDS\n" + std::string(257, 'v') + "\n");
    write("state.dat", wholeState().substr(0, 175));
    const std::vector<std::string> utf8 = {"LC_ALL=C.UTF-8", "TERM=xterm", environment()[1]};
    const Finished whole = runProgram(words(), utf8);
    for (const unsigned short columns : std::initializer_list<unsigned short>{40, 80, 200}) {
        SCOPED_TRACE(columns);
        Finished finished = runOnTerminal(words(), utf8, columns);
        if (const size_t erased = finished.err.rfind("\x1b[K");
            erased != std::string::npos) // progress on a busy machine
        {
            finished.err.erase(0, erased + 3);
        }
        EXPECT_EQ(finished.status, whole.status) << finished.err;
        expectToFit(finished.out, columns);
        expectToFit(finished.err, columns);
        EXPECT_EQ(contentOfLines(finished.out), contentOfLines(whole.out));
        EXPECT_EQ(contentOfLines(finished.err), contentOfLines(whole.err));
    }
    EXPECT_GT(whole.out.size(), 200U);
}

INSTANTIATE_TEST_SUITE_P(Commands, OnATerminal,
                         testing::Values(Printed{"show", {"--machine", "MACHINE", "show", "--verbose"}},
                                         Printed{"enum", {"--machine", "MACHINE", "enum", "SCSIDevice"}},
                                         Printed{"classes", {"classes"}},
                                         Printed{"check", {"check", "--root", "./größe-der-站点"}},
                                         Printed{"checkMachine", {"--machine", "MACHINE", "check"}},
                                         Printed{"dumpState", {"dump-state", "./state.dat"}}),
                         [](const auto &test) { return std::string(test.param.name); });

using WatchOnATerminal = ToolTest;

TEST_F(WatchOnATerminal, AlertsAndNotesFit)
{
    Running watch({kTool, "--color=never", "--machine", TAV_SOURCE_DIR "/examples/machines/failing.json", "watch"},
                  environment(), 50);
    EXPECT_TRUE(watch.says("KESTREL"));
    watch.send(SIGINT);
    const Finished finished = watch.finish();
    EXPECT_EQ(finished.status, 0) << finished.err;
    EXPECT_THAT(finished.out, HasSubstr("\r\n    predicts failure: ATA NORDWIND NW4000"));
    expectToFit(finished.out, 51); // with the return before each line end
    expectToFit(finished.err, 51);
    EXPECT_TRUE(leftNothing(finished));
}

using ProgressOnATerminal = ToolTest;

// The first answer comes after more than the second in which nothing is said.
TEST_F(ProgressOnATerminal, IsShownForASlowMachineOnATerminalOnly)
{
    std::string slow = kSmallMachine;
    const std::string place = "\"sectors\": 16065000";
    slow.replace(slow.find(place), place.size(), R"("faults": [{"on": "identity", "nth": 1, "delayMs": 1300}])");
    const std::vector<std::string> words = {kTool, "--machine", write("slow.json", slow), "enum", "HardDisk"};
    Running elsewhere(words, environment());
    const Finished terminal = runOnTerminal(words, environment(), 80);
    EXPECT_EQ(terminal.status, 0);
    EXPECT_THAT(terminal.err, testing::MatchesRegex("(\rAsking the disks, [0-9]+ s \\.\\.\\.)+\r\x1b\\[K"));
    const Finished finished = elsewhere.finish();
    EXPECT_EQ(finished.status, 0);
    EXPECT_EQ(finished.err, "");
    EXPECT_EQ(finished.out, terminal.out);
}

} // namespace

// SPDX-License-Identifier: Apache-2.0
// Reading commands beside a monitor: they change nothing that is the monitor's, and ask the disks once.

#include "tavstrg/private_copy.h"

#include "support/tool_fixture.h"
#include "support/tool_state.h"
#include "tavstrg/ask.h"
#include "tavstrg/saved_state.h"
#include "tavstrg/segments.h"

#include "sim/sim.h"

#include <gmock/gmock.h>
#include <nlohmann/json.hpp>

#include <sys/ipc.h>
#include <sys/stat.h>

#include <csignal>
#include <map>
#include <set>
#include <thread>

namespace {

using namespace tool::testing_support;
using nlohmann::json;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

namespace fs = std::filesystem;

std::string smallMachine(bool failing)
{
    json machine = json::parse(kSmallMachine);
    if (failing) {
        machine["hosts"][0]["devices"][0]["smart"]["failing"] = true;
    }
    return machine.dump();
}

// Content, inode and time of change of every file below a directory.
std::map<std::string, std::string> filesOf(const fs::path &directory)
{
    std::map<std::string, std::string> files;
    for (const auto &entry : fs::recursive_directory_iterator(directory)) {
        struct stat status = {};
        EXPECT_EQ(lstat(entry.path().c_str(), &status), 0);
        files[entry.path()] = std::to_string(status.st_ino) + " " + std::to_string(status.st_mtim.tv_sec) + "." +
                              std::to_string(status.st_mtim.tv_nsec) + " " +
                              (entry.is_regular_file() ? contentOf(entry.path()) : "");
    }
    return files;
}

// Identifiers of the segments under the key files of a work directory.
std::set<int> segmentIds(const fs::path &work)
{
    std::set<int> ids;
    for (const auto &entry : fs::directory_iterator(work)) {
        constexpr int kProjectId = 69; // of the provider's keys
        const int key = ftok(entry.path().c_str(), kProjectId);
        for (const tool::Segment &segment : tool::segments()) {
            if (segment.key == key) {
                ids.insert(segment.id);
            }
        }
    }
    return ids;
}

// A machine whose agent keeps its state between runs of the tool.
class BesideAMonitor : public ToolTest {
protected:
    void SetUp() override
    {
        ToolTest::SetUp();
        fs::create_directory(state());
    }
    fs::path state() const { return directory_ / "state"; }
    std::vector<std::string> withState(std::vector<std::string> words) const
    {
        words.insert(words.begin(), {"--machine", (directory_ / "small.json").string(), "--state", state().string()});
        return words;
    }
    std::vector<std::string> watchWords(const char *more = "watch") const
    {
        std::vector<std::string> words = withState({"watch"});
        words.insert(words.begin(), kTool);
        if (std::string(more) != "watch") {
            words.emplace_back(more);
        }
        return words;
    }
    // Until the first pass has saved: then nothing changes for a minute.
    void awaitPass(Running &watch) const
    {
        ASSERT_TRUE(watch.says("watching"));
        const fs::path saved = state() / "data/tavstrgsave.dat";
        for (int tries = 0; tries < 1000 && !fs::exists(saved); ++tries) {
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(300));
        ASSERT_TRUE(fs::exists(saved));
    }
};

TEST_F(BesideAMonitor, ReadingCommandsLeaveStateKeyFilesAndSegmentsAsTheyAre)
{
    Running watch(watchWords(), environment());
    awaitPass(watch);
    const auto files = filesOf(state());
    EXPECT_THAT(files, testing::Contains(testing::Key(HasSubstr("tavstrgshm.key5"))));
    const std::set<int> segments = segmentIds(state() / "work");
    EXPECT_THAT(segments, Not(IsEmpty()));
    for (const auto &words : {std::vector<std::string>{"show"},
                              {"metrics"},
                              {"metrics", "--classes"},
                              {"enum", "HardDisk"},
                              {"get", "Config"},
                              {"check"},
                              {"classes"},
                              {"dump-state", (state() / "data/tavstrgsave.dat").string()}}) {
        const Finished finished = run(withState(words));
        EXPECT_EQ(finished.status, 0) << words.front() << ": " << finished.err;
        EXPECT_EQ(filesOf(state()), files) << words.front();
        EXPECT_EQ(segmentIds(state() / "work"), segments) << words.front();
        EXPECT_EQ(segmentsOf(finished.pid), 0) << words.front();
    }
    watch.send(SIGINT);
    const Finished finished = watch.finish();
    EXPECT_EQ(finished.status, 0) << finished.err;
    EXPECT_TRUE(leftNothing(finished));
}

TEST_F(BesideAMonitor, AFailureBetweenTwoWatchesIsAlertedThoughItWasShown)
{
    {
        Running watch(watchWords(), environment());
        awaitPass(watch);
        watch.send(SIGINT);
        EXPECT_THAT(watch.finish().out, IsEmpty());
    }
    write("small.json", smallMachine(true));
    EXPECT_THAT(run(withState({"show"})).out, HasSubstr("FAIL"));
    EXPECT_EQ(run(withState({"metrics", "--classes"})).status, 0);
    Running watch(watchWords(), environment());
    EXPECT_TRUE(watch.says("SMART predicts failure"));
    watch.send(SIGINT);
    EXPECT_TRUE(leftNothing(watch.finish()));
}

TEST_F(BesideAMonitor, ACallIsRefusedAndNothingIsSaved)
{
    const std::vector<std::string> set = {"call", "Config", "SetMonitorCycle", "MonitorCycle=120"};
    Running watch(watchWords(), environment());
    awaitPass(watch);
    const auto files = filesOf(state());
    const Finished refused = run(withState(set));
    EXPECT_EQ(refused.status, 1);
    EXPECT_THAT(refused.err, testing::MatchesRegex("tavstrg: call: the provider runs in process [0-9]+ \\(tavstrg\\), "
                                                   "which would overwrite what this command saves; [^\n]+\n"));
    EXPECT_EQ(filesOf(state()), files);
    watch.send(SIGINT);
    EXPECT_EQ(watch.finish().status, 0);

    const Finished alone = run(withState(set));
    EXPECT_EQ(alone.status, 0) << alone.err;
    EXPECT_TRUE(leftNothing(alone));
    EXPECT_EQ(json::parse(run(withState({"--json", "get", "Config"})).out)["instance"]["MonitorCycle"], 120);
}

TEST_F(BesideAMonitor, AStateThatAKilledMonitorLeftDoesNotCountAsOne)
{
    {
        Running watch(watchWords(), environment());
        awaitPass(watch);
        watch.send(SIGKILL);
        watch.finish();
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(200)); // the process that asks ends with its parent
    const Finished finished = run(withState({"call", "Config", "SetMonitorCycle", "MonitorCycle=120"}));
    EXPECT_EQ(finished.status, 0) << finished.err;
    for (const tool::Segment &segment : tool::segments()) { // of the killed monitor
        if (kill(segment.creator, 0) != 0 && segment.made + 60 > std::time(nullptr)) {
            tool::removeSegmentsOf(segment.creator, segment.made);
        }
    }
}

TEST_F(BesideAMonitor, StartingTheThreadForTheLengthOfACommandIsRefused)
{
    const Finished finished = runSmall({"--service-mode", "call", "Thread", "StartMonitoringThread"});
    EXPECT_EQ(finished.status, 1);
    EXPECT_EQ(finished.out, "");
    EXPECT_THAT(finished.err, HasSubstr("the monitoring thread would end with this command"));
    EXPECT_THAT(finished.err, HasSubstr("tavstrg watch"));
}

// What the tool sees as the real machine is this test's: its agent has a state of its own.
class OneCollection : public testing::Test {
protected:
    static std::string machineFile() { return sim::Machine::readFile(TAV_SOURCE_DIR "/examples/machines/server.json"); }
    sim::Machine machine_{machineFile()};
};

TEST_F(OneCollection, IsAllThatTheInventoryTakes)
{
    tool::Arguments arguments;
    arguments.provider = TAV_BINARY_DIR "/lib/libTAVStorageProvider.so";
    const int descriptors = machine_.openDescriptors();
    {
        tool::Surroundings surroundings(arguments, tool::Use::read);
        tool::Session session(surroundings, arguments, false);
        const tool::Answers answers = tool::askInventory(session);
        ASSERT_EQ(answers.at("TAV_StorageHardDisk").size(), 24U);
        EXPECT_EQ(answers.at("TAV_StorageConfig").size(), 1U);
        EXPECT_EQ(answers.at("TAV_StorageThread").size(), 1U);
        std::map<std::string, int> identities;
        constexpr unsigned long kGetIdentity = 0x030d; // HDIO_GET_IDENTITY, linux/hdreg.h
        size_t commands = 0;
        for (const sim::Command &command : machine_.commands()) {
            constexpr unsigned long kSgIo = 0x2285; // scsi/sg.h
            commands += command.request == kSgIo ? 1 : 0;
            identities[command.device] += command.request == kGetIdentity ? 1 : 0;
        }
        EXPECT_EQ(identities.size(), 24U);
        EXPECT_THAT(identities, testing::Each(testing::Pair(testing::_, 1))) << "each disk is asked once";
        EXPECT_LE(commands, 120U);
    }
    EXPECT_FALSE(machine_.exists("/opt/qlm/tavkit_sa/data/tavstrgsave.dat"));
    EXPECT_FALSE(machine_.exists("/opt/qlm/tavkit_sa/work/tavstrgshm.key0"));
    EXPECT_EQ(sim::liveSegments(), 0);
    EXPECT_EQ(machine_.openDescriptors(), descriptors);
}

TEST_F(OneCollection, IsAllThatEachCommandTraces)
{
    for (const auto &words : {std::vector<std::string>{"show"},
                              {"metrics", "--classes"},
                              {"enum", "SCSIDevice"},
                              {"get", "HardDisk", "1"}}) {
        std::vector<std::string> all = {kTool, "--machine", TAV_SOURCE_DIR "/examples/machines/server.json", "--trace"};
        all.insert(all.end(), words.begin(), words.end());
        const Finished finished = runProgram(all, {"LC_ALL=C"});
        EXPECT_EQ(finished.status, 0);
        size_t collections = 0;
        const std::string begin = "strgGetCurrentInfo: _IN_ smartmode=[1]";
        for (size_t at = finished.err.find(begin); at != std::string::npos; at = finished.err.find(begin, at + 1)) {
            ++collections;
        }
        EXPECT_EQ(collections, 1U) << words.front();
    }
}

TEST(StateWithoutDevices, HasTheConfigurationOfAWholeStateOnly)
{
    const auto cycleOf = [](const std::string &state) {
        const tool::SavedState parsed = tool::parseSavedState(tool::stateWithoutDevices(state));
        EXPECT_EQ(parsed.damage, "");
        EXPECT_EQ(parsed.trailing, 0U);
        EXPECT_EQ(parsed.blocks.size(), 2U) << "configuration and totals";
        return parsed.blocks.front().records.front().find("MonitorCycle")->toString();
    };
    EXPECT_EQ(cycleOf(wholeState()), "90");
    EXPECT_EQ(cycleOf(oldState()), "90");
    EXPECT_EQ(cycleOf(wholeState().substr(0, 175)), "60") << "the provider takes nothing from a damaged state";
    EXPECT_EQ(cycleOf(""), "60");
}

} // namespace

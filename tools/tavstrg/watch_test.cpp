// SPDX-License-Identifier: Apache-2.0
// tavstrg watch, run as a user runs it, the machine's file edited meanwhile.

#include "support/tool_process.h"
#include "support/tool_state.h"

#include <gmock/gmock.h>
#include <nlohmann/json.hpp>

#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <fstream>
#include <sstream>

namespace {

using nlohmann::json;
using testing::HasSubstr;
using testing::MatchesRegex;
using tool::testing_support::Finished;
using tool::testing_support::Running;
using tool::testing_support::runProgram;
using tool::testing_support::segmentsOf;
using tool::testing_support::wholeState;

namespace fs = std::filesystem;

// One disk is well; the other, an M.2 drive at level 4, predicts its failure: both are news to the first pass, which
// begins with the thread.
json machine()
{
    return json::parse(R"({
      "hosts": [{"number": 0, "driver": "ahci", "devices": [
        {"id": 0, "type": "disk", "ata": true, "model": "WELL", "revision": "FW1", "serial": "SER-1"},
        {"id": 1, "type": "disk", "ata": true, "model": "DRIVE M2 OF 16CH", "revision": "FW2", "serial": "SER-2",
         "smart": {"failing": true, "attributes": [{"id": 231, "current": 70}]}}]}],
      "files": {"storage.inf": "ahci\n",
                "tavm2ssd.inf": "[Endurance Remaining]\nDRIVE M2 OF 16CH,231,100,80,60,40,20,0\n"}})");
}

// What is printed, as regular expressions.
const std::string kTime = "[0-9-]{10} [0-9:]{8} [+]0000  ";
const std::string kDrive =
    "ATA DRIVE M2 OF 16CH FW2 \\(sdb, 0:0:1:0, serial SER-2; SCSI device 2, controller 1, 0:1:0\\)\n";
const std::string kFirstPass = kTime + "warning      SMART predicts failure: " + kDrive + kTime +
                               "information  life span now level 4 of 5, much endurance left: " + kDrive;

class WatchTool : public testing::Test {
protected:
    void SetUp() override
    {
        directory_ = tool::testing_support::makeDirectory();
        fs::create_directory(directory_ / "tmp");
        edit(machine().dump());
    }
    void TearDown() override { fs::remove_all(directory_); }

    std::string file() const { return (directory_ / "m.json").string(); }
    void edit(const std::string &text) const { std::ofstream(file()) << text; }

    std::vector<std::string> words(const std::vector<std::string> &options) const
    {
        std::vector<std::string> all = {std::string(TAV_BINARY_DIR) + "/bin/tavstrg", "--machine", file(), "watch"};
        all.insert(all.end(), options.begin(), options.end());
        return all;
    }
    std::vector<std::string> environment() const
    {
        return {"LC_ALL=C", "TZ=UTC0", "TMPDIR=" + (directory_ / "tmp").string()};
    }

    // On this machine, with an agent's directory of the test's own in a mount namespace: nothing of it is seen outside.
    // The saved state has devices that are not there any more.
    static bool canWatchThisMachine()
    {
        return geteuid() == 0 && runProgram({"/usr/bin/unshare", "--mount", "--ipc", "/bin/true"}).status == 0;
    }
    Running watchThisMachine(const std::string &libraries) const
    {
        std::ofstream(directory_ / "state", std::ios::binary) << wholeState();
        const std::string script = "set -e; mount -t tmpfs none /opt; mkdir -p /opt/qlm/tavkit_sa/data "
                                   "/opt/qlm/tavkit_sa/work; cp " +
                                   (directory_ / "state").string() +
                                   " /opt/qlm/tavkit_sa/data/tavstrgsave.dat; "
                                   "test -z '" +
                                   libraries + "' || ln -s '" + libraries + "' /opt/qlm/tavkit_sa/lib; exec " +
                                   TAV_BINARY_DIR + "/bin/tavstrg watch";
        return Running({"/usr/bin/unshare", "--mount", "--ipc", "/bin/sh", "-c", script}, environment());
    }

    void expectNothingLeft(const Finished &finished) const
    {
        EXPECT_TRUE(fs::is_empty(directory_ / "tmp"));
        EXPECT_EQ(segmentsOf(finished.pid), 0);
    }

    fs::path directory_;
};

TEST_F(WatchTool, AlertsComeAtOnceAndASignalEndsItWell)
{
    for (const int signal : {SIGINT, SIGTERM}) {
        Running watch(words({}), environment());
        EXPECT_TRUE(watch.says("life span now level 4"));
        watch.send(signal);
        const Finished finished = watch.finish();
        EXPECT_EQ(finished.status, 0) << finished.signal;
        EXPECT_THAT(finished.out, MatchesRegex(kFirstPass));
        EXPECT_THAT(finished.err, testing::StartsWith("tavstrg: watching the simulated machine m.json, a pass every 60 "
                                                      "s, until Ctrl-C\n"));
        expectNothingLeft(finished);
    }
}

TEST_F(WatchTool, WithJsonAnAlertIsOneObjectInOneLine)
{
    Running watch(words({"--json"}), environment());
    EXPECT_TRUE(watch.says("lifeSpan"));
    watch.send(SIGINT);
    const Finished finished = watch.finish();
    EXPECT_EQ(finished.status, 0);
    std::istringstream lines(finished.out);
    std::string line;
    ASSERT_TRUE(std::getline(lines, line));
    const json alert = json::parse(line);
    EXPECT_EQ(alert["event"], "smartError");
    EXPECT_EQ(alert["severity"], "warning");
    EXPECT_EQ(alert["eventId"], "0x800403E9");
    EXPECT_EQ(alert["disk"]["name"], "ATA DRIVE M2 OF 16CH FW2");
    EXPECT_EQ(alert["disk"]["serialNumber"], "SER-2");
    EXPECT_EQ(alert["disk"]["node"], "/dev/sdb");
    EXPECT_EQ(alert["disk"]["address"], json::parse(R"({"bus": 0, "target": 1, "lun": 0})"));
    ASSERT_TRUE(std::getline(lines, line));
    EXPECT_EQ(json::parse(line)["level"], 4);
    EXPECT_FALSE(std::getline(lines, line));
    expectNothingLeft(finished);
}

TEST_F(WatchTool, ASlipInTheFileChangesNothingAndAnEditIsSeenWithinACycle)
{
    Running watch(words({"--cycle", "10"}), environment());
    EXPECT_TRUE(watch.says("life span now level 4"));

    edit("{\n  oops\n}\n");
    EXPECT_TRUE(watch.says("tavstrg: " + file() + ":2:3: "));
    edit("{\"hosts\": 7}");
    EXPECT_TRUE(watch.says("hosts: expected an array"));
    edit("{\"hosts\": " + std::string(100000, '[') + std::string(100000, ']') + "}");
    EXPECT_TRUE(watch.says("nested deeper than"));

    json edited = machine();
    edited["hosts"][0]["devices"][0]["smart"]["failing"] = true;
    edited["hosts"][0]["devices"][1]["smart"]["attributes"][0]["current"] = 25;
    edited["hosts"][0]["devices"].push_back({{"id", 2}, {"type", "tape"}});
    edit(edited.dump());
    EXPECT_TRUE(watch.says(file() + ": read again"));
    EXPECT_TRUE(watch.says("storage configuration changed"));
    watch.send(SIGINT);
    const Finished finished = watch.finish();
    EXPECT_EQ(finished.status, 0);
    EXPECT_THAT(finished.err, HasSubstr("a pass every 10 s"));
    EXPECT_THAT(finished.err, HasSubstr("; the machine stays as it was\n"));
    EXPECT_THAT(
        finished.out,
        MatchesRegex(
            kFirstPass + kTime +
            "warning      SMART predicts failure: ATA WELL FW1 \\(sda, 0:0:0:0, serial SER-1; SCSI device 1, [^\n]*\n" +
            kTime + "warning      life span now level 2 of 5, little endurance left: " + kDrive + kTime +
            "information  storage configuration changed: added tape drive st0 \\(0:0:2:0, TEST DEVICE\\)\n"));
    expectNothingLeft(finished);
}

// Alerts speak of failing disks alone; of the others a note after the first pass.
TEST_F(WatchTool, TheStateOfEveryDiskIsNotedAfterTheFirstPass)
{
    json told = machine();
    json &devices = told["hosts"][0]["devices"];
    devices.push_back({{"id", 2}, {"type", "disk"}, {"ata", true}, {"smart", {{"supported", false}}}});
    devices.push_back({{"id", 3}, {"type", "disk"}, {"ata", true}, {"smart", {{"status", {0, 0}}}}});
    edit(told.dump());
    Running watch(words({}), environment());
    EXPECT_TRUE(watch.says("1 disk good"));
    watch.send(SIGINT);
    const Finished finished = watch.finish();
    for (const char *line : {"tavstrg: 1 of 4 disks predicts failure: sdb (0:0:1:0, serial SER-2)\n",
                             "tavstrg: SMART status of 1 disk not readable: sdd (0:0:3:0)\n",
                             "tavstrg: SMART not supported by 1 disk\n", "tavstrg: 1 disk good\n"}) {
        EXPECT_THAT(finished.err, HasSubstr(line));
    }
    expectNothingLeft(finished);
}

TEST_F(WatchTool, AReaderThatGoesAwayEndsItAndLeavesNothing)
{
    Running watch(words({}), environment());
    EXPECT_TRUE(watch.says("SMART predicts failure"));
    watch.stopReading();
    const Finished finished = watch.finish();
    EXPECT_EQ(finished.status, 1);
    EXPECT_THAT(finished.err, testing::EndsWith("tavstrg: standard output: Broken pipe\n"));
    expectNothingLeft(finished);
}

TEST_F(WatchTool, AMachineThatCannotBeReadIsAFailure)
{
    edit("{");
    Running watch(words({}), environment());
    const Finished finished = watch.finish();
    EXPECT_EQ(finished.status, 1);
    EXPECT_THAT(finished.err, MatchesRegex("tavstrg: .*/m\\.json:1:2: [^\n]*\n"));
    expectNothingLeft(finished);
}

TEST_F(WatchTool, ATooDeeplyNestedMachineIsAFailure)
{
    edit("{\"hosts\": " + std::string(100000, '[') + std::string(100000, ']') + "}");
    Running watch(words({}), environment());
    const Finished finished = watch.finish();
    EXPECT_EQ(finished.status, 1);
    EXPECT_EQ(finished.out, "");
    EXPECT_THAT(finished.err, MatchesRegex("tavstrg: .*/m\\.json: [^\n]*nested[^\n]*\n"));
    expectNothingLeft(finished);
}

// A managed disk that is no ATA disk fails every inventory.
TEST_F(WatchTool, AMachineWhoseInventoryFailsIsAFailure)
{
    json broken = machine();
    broken["hosts"][0]["devices"][0].erase("ata");
    edit(broken.dump());
    Running watch(words({}), environment());
    const Finished finished = watch.finish();
    EXPECT_EQ(finished.status, 1);
    EXPECT_THAT(finished.err, MatchesRegex("tavstrg: TAV_StorageThread.StartMonitoringThread: [^\n]*\n"));
    expectNothingLeft(finished);
}

class WatchThisMachine : public WatchTool {
protected:
    void SetUp() override
    {
        WatchTool::SetUp();
        if (!canWatchThisMachine()) {
            GTEST_SKIP() << "needs root and a mount namespace";
        }
    }
};

TEST_F(WatchThisMachine, TheDevelopmentLibraryGivesTheAlertsToTheTerminal)
{
    Running watch = watchThisMachine(TAV_BINARY_DIR "/lib");
    EXPECT_TRUE(watch.says("configuration changed"));
    watch.send(SIGINT);
    const Finished finished = watch.finish();
    EXPECT_EQ(finished.status, 0);
    EXPECT_THAT(finished.out, MatchesRegex(kTime + "[a-z]+ +storage configuration changed[^\n]*\n"));
    EXPECT_THAT(finished.err, testing::StartsWith("tavstrg: watching this machine, a pass every 90 s, until Ctrl-C\n"));
    expectNothingLeft(finished);
}

TEST_F(WatchThisMachine, AnotherAlertLibraryIsTheAgents)
{
    const fs::path libraries = directory_ / "lib";
    fs::create_directory(libraries);
    for (const char *name : {"libtavlog.so", "libtavalert.so"}) { // any library but the development one
        fs::copy_file(fs::path(TAV_BINARY_DIR) / "lib/libtavlog.so", libraries / name);
    }
    Running watch = watchThisMachine(libraries.string());
    EXPECT_TRUE(watch.says("watching this machine"));
    watch.send(SIGINT);
    const Finished finished = watch.finish();
    EXPECT_EQ(finished.status, 0);
    EXPECT_EQ(finished.out, "");
    EXPECT_THAT(finished.err, testing::StartsWith("tavstrg: alerts go to this machine's agent "
                                                  "(/opt/qlm/tavkit_sa/lib/libtavalert.so), not to this terminal\n"));
    expectNothingLeft(finished);
}

TEST_F(WatchThisMachine, WithoutAnAlertLibraryThereIsNothingToWatch)
{
    Running watch = watchThisMachine("");
    const Finished finished = watch.finish();
    EXPECT_EQ(finished.status, 1);
    EXPECT_THAT(finished.err, MatchesRegex("tavstrg: no alert library: /opt/qlm/[^\n]*\n"));
    expectNothingLeft(finished);
}

} // namespace

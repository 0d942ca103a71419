// SPDX-License-Identifier: Apache-2.0
// The built tool, run as a user runs it.

#include "support/tool_fixture.h"

#include <gmock/gmock.h>
#include <nlohmann/json.hpp>

#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <string>
#include <vector>

namespace {

using nlohmann::json;
using testing::HasSubstr;
using testing::MatchesRegex;
using testing::StartsWith;
using tool::testing_support::Finished;
using tool::testing_support::kSmallMachine;
using tool::testing_support::kTool;
using tool::testing_support::runProgram;
using tool::testing_support::StandardOutput;

class Tool : public tool::testing_support::ToolTest {};

void expectFailure(const Finished &finished, int status, const std::string &line)
{
    EXPECT_EQ(finished.status, status);
    EXPECT_EQ(finished.out, "");
    EXPECT_EQ(finished.err, line + "\n");
}

TEST_F(Tool, WrongUsageIsStatus2AndOneLineOnStandardError)
{
    for (const auto &words : {std::vector<std::string>{},
                              {"list"},
                              {"show", "--colour"},
                              {"enum"},
                              {"enum", "Floppy"},
                              {"get", "Tape"},
                              {"call", "Config", "Explode"}}) {
        const Finished finished = run(words);
        EXPECT_EQ(finished.status, 2);
        EXPECT_EQ(finished.out, "");
        EXPECT_THAT(finished.err, MatchesRegex("tavstrg: [^\n(]+ \\(see tavstrg [a-z -]+\\)\n")) << "one hint";
    }
}

TEST_F(Tool, HelpAndVersionAreStatus0OnStandardOutput)
{
    for (const auto &words : {std::vector<std::string>{"--help"}, {"show", "--help"}, {"--version"}}) {
        const Finished finished = run(words);
        EXPECT_EQ(finished.status, 0);
        EXPECT_NE(finished.out, "");
        EXPECT_EQ(finished.err, "");
    }
}

TEST_F(Tool, ClassesNeedNeitherProviderNorMachine)
{
    const Finished finished = run({"--provider", "/nonexistent.so", "--json", "classes"});
    EXPECT_EQ(finished.status, 0) << finished.err;
    EXPECT_EQ(json::parse(finished.out)["classes"].size(), 13U);
    EXPECT_THAT(run({"classes"}).out, StartsWith("TAV_StorageConfig (one instance)\n"));
}

TEST_F(Tool, AProviderThatDoesNotLoadIsAFailure)
{
    const Finished finished = run({"--provider", write("broken.so", "no shared object"), "--machine",
                                   (directory_ / "small.json").string(), "show"});
    EXPECT_EQ(finished.status, 1);
    EXPECT_THAT(finished.err, MatchesRegex("tavstrg: cannot load .*/broken.so: [^\n]+\n"));
    EXPECT_TRUE(leftNothing(finished));
}

TEST_F(Tool, AMachineFileThatIsNotThereIsAFailure)
{
    expectFailure(run({"--machine", "/nonexistent/m.json", "show"}), 1,
                  "tavstrg: /nonexistent/m.json: No such file or directory");
}

TEST_F(Tool, ASlipInAMachineFileIsToldWithItsLine)
{
    const std::string path = write("slip.json", "{\n  \"hosts\": [\n    oops\n  ]\n}\n");
    const Finished finished = run({"--machine", path, "show"});
    EXPECT_EQ(finished.status, 1);
    EXPECT_THAT(finished.err, StartsWith("tavstrg: " + path + ":3:5: "));
    EXPECT_THAT(finished.err, MatchesRegex("[^\n]+\n"));
}

TEST_F(Tool, AMachineThatCannotBeMadeIsAFailureThatSaysWhy)
{
    const std::string path = write("odd.json", "{\"hosts\": 7}");
    const Finished finished = run({"--machine", path, "show"});
    EXPECT_EQ(finished.status, 1);
    EXPECT_THAT(finished.err, StartsWith("tavstrg: " + path + ": "));
    EXPECT_THAT(finished.err, HasSubstr("hosts"));
    EXPECT_TRUE(leftNothing(finished));
}

// 16065000 sectors of 512 bytes are 1000 cylinders of 255 heads and 63 sectors, 7844 MiB rounded down.
TEST_F(Tool, ShowIsATree)
{
    const Finished finished = runSmall({"show"});
    EXPECT_EQ(finished.status, 0) << finished.err;
    EXPECT_EQ(finished.err, "");
    EXPECT_EQ(finished.out, "Storage of the simulated machine small.json: 1 controller, 2 devices\n"
                            "`-- Controller 1: SCSI Controller, host 0, driver ahci, interrupt unknown\n"
                            "    |-- 0:0:0:0  sda  hard disk 1     7.7 GiB  SMART good  ATA SMALL DISK, serial SER-1, "
                            "firmware FW1\n"
                            "    `-- 0:0:1:0  sr0  CD-ROM drive 1  DISCO RW, firmware 2.0\n"
                            "\n"
                            "Totals\n"
                            "  controllers       1\n"
                            "  SCSI devices      2\n"
                            "  IDE devices       0\n"
                            "  hard disks        1\n"
                            "  CD-ROM drives     1\n"
                            "  tape drives       0\n"
                            "  optical memories  0\n"
                            "  other devices     0\n"
                            "\n"
                            "Health: 1 disk good\n");
    EXPECT_TRUE(leftNothing(finished));
}

TEST_F(Tool, AMachineWithoutAnythingIsShownAsEmpty)
{
    const Finished finished = run({"--machine", write("empty.json", "{}"), "--json", "show"});
    EXPECT_EQ(finished.status, 0) << finished.err;
    const json shown = json::parse(finished.out);
    EXPECT_EQ(shown["controllers"], json::array());
    EXPECT_EQ(shown["totals"]["hardDisks"], 0);
    EXPECT_THAT(shown["explanation"].get<std::string>(), StartsWith("The kernel has no SCSI host adapter"));
}

TEST_F(Tool, AMachineOfWhichNothingIsManagedSaysWhy)
{
    std::string machine = kSmallMachine;
    machine.replace(machine.find("ahci\\n"), 4, "isci");
    EXPECT_THAT(run({"--machine", write("other.json", machine), "show"}).out,
                HasSubstr("0 devices\nNo host adapter is managed: the adapters here have the drivers ahci, and "
                          "/opt/qlm/tavkit_sa/data/storage.inf must name those"));
}

TEST_F(Tool, DisksThatAreNotAskedAreNotCalledGood)
{
    const std::string state = (directory_ / "state").string();
    std::filesystem::create_directory(state);
    ASSERT_EQ(runSmall({"--state", state, "call", "Config", "SetHardDiskSmartMode", "HardDiskSmartMode=0"}).status, 0);
    const std::string text = runSmall({"--state", state, "show"}).out;
    EXPECT_THAT(text, HasSubstr("SMART not asked"));
    EXPECT_THAT(text, HasSubstr("Health: SMART status of 1 disk not asked (HardDiskSmartMode is 0)\n"));
    EXPECT_THAT(text, testing::Not(HasSubstr("good")));
    const json disk = json::parse(runSmall({"--state", state, "--json", "show"}).out)["controllers"][0]["devices"][0];
    EXPECT_EQ(disk["hardDisk"]["smart"]["state"], "notAsked");
    EXPECT_THAT(runSmall({"--state", state, "metrics", "--classes"}).out, HasSubstr("state=\"not_asked\"} 1\n"));
}

TEST_F(Tool, EnumPrintsEveryInstance)
{
    const Finished text = runSmall({"enum", "scsidevice"});
    EXPECT_EQ(text.status, 0) << text.err;
    EXPECT_THAT(text.out, StartsWith("TAV_StorageSCSIDevice\n  Index             1\n"));
    EXPECT_THAT(text.out, HasSubstr("\n\nTAV_StorageSCSIDevice\n  Index             2\n"));
    const json instances = json::parse(runSmall({"--json", "enum", "SCSIDevice"}).out)["instances"];
    ASSERT_EQ(instances.size(), 2U);
    EXPECT_EQ(instances[0]["SerialNumber"], "SER-1");
    EXPECT_EQ(instances[1]["DeviceType"], 1);
}

TEST_F(Tool, WithJsonAFailureIsADocumentOnStandardError)
{
    const Finished finished = runSmall({"--json", "enum", "Tape"});
    EXPECT_EQ(finished.status, 1);
    EXPECT_EQ(finished.out, "");
    EXPECT_EQ(json::parse(finished.err)["command"], "enum");
    EXPECT_EQ(json::parse(finished.err)["failure"],
              json::parse(
                  R"x({"exitStatus": 1, "cimStatus": 6, "messages": ["TAV_StorageTape: NotFound Data (status 6)"]})x"));
    const Finished full = run({"--json", "classes"}, StandardOutput::full);
    EXPECT_EQ(full.status, 1);
    EXPECT_EQ(json::parse(full.err)["failure"]["messages"],
              json::parse(R"(["standard output: No space left on device"])"));
}

TEST_F(Tool, AnEmptyClassIsAFailureOfEnum)
{
    const Finished finished = runSmall({"enum", "Tape"});
    expectFailure(finished, 1, "tavstrg: TAV_StorageTape: NotFound Data (status 6)");
    EXPECT_TRUE(leftNothing(finished));
}

TEST_F(Tool, GetPrintsTheInstanceWithThatIndex)
{
    const Finished finished = runSmall({"--json", "get", "HardDisk", "1"});
    EXPECT_EQ(finished.status, 0) << finished.err;
    const json document = json::parse(finished.out);
    EXPECT_EQ(document["formatVersion"], 1);
    EXPECT_EQ(document["class"], "TAV_StorageHardDisk");
    EXPECT_EQ(document["instance"]["Capacity"], 7844);
    EXPECT_EQ(document["instance"]["PNPDeviceID"], "");
    EXPECT_EQ(document["instance"]["Index"], "1");
}

TEST_F(Tool, GetOfASingletonNeedsNoIndex)
{
    EXPECT_EQ(runSmall({"get", "config"}).out, "TAV_StorageConfig\n"
                                               "  MonitorCycle         60 s\n"
                                               "  MonitorCycleMin      10 s\n"
                                               "  MonitorCycleMax      3600 s\n"
                                               "  MonitorCycleDefault  60 s\n"
                                               "  HardDiskSmartMode    1 (On)\n");
}

TEST_F(Tool, RefusalsOfTheProviderAreToldWithTheirStatus)
{
    expectFailure(runSmall({"get", "HardDisk", "2"}), 1, "tavstrg: TAV_StorageHardDisk: NotFound Index (status 4)");
    expectFailure(runSmall({"get", "HardDisk", "0"}), 1,
                  "tavstrg: TAV_StorageHardDisk: getKeyIndex() FAILED (status 1)");
    expectFailure(runSmall({"enum", "--raw", "harddisk"}), 1, "tavstrg: harddisk: Generic Failure!! (status 1)");
    // What the tool itself refuses, the provider refuses too.
    expectFailure(runSmall({"call", "--raw", "TAV_StorageConfig", "SetMonitorCycle", "MonitorCycle=9"}), 1,
                  "tavstrg: TAV_StorageConfig.SetMonitorCycle: SetValue(MonitorCycle) FAILED (status 1)");
    expectFailure(runSmall({"call", "--raw", "TAV_StorageConfig", "SetMonitorCycle"}), 1,
                  "tavstrg: TAV_StorageConfig.SetMonitorCycle: getArgToInt(MonitorCycle) FAILED (status 1)");
}

TEST_F(Tool, CallOfAMethodThatReturnsNothingPrintsNothing)
{
    const Finished finished = runSmall({"call", "config", "setmonitorcycle", "monitorcycle=120"});
    EXPECT_EQ(finished.status, 0) << finished.err;
    EXPECT_EQ(finished.out, "");
    // Only text can say 0.
    EXPECT_EQ(runSmall({"call", "Config", "SetHardDiskSmartMode", "HardDiskSmartMode=0"}).status, 0);
}

TEST_F(Tool, AMethodsReturnValueOtherThan0IsAFailure)
{
    const Finished finished = runSmall({"call", "Thread", "StartMonitoringThread"});
    EXPECT_EQ(finished.status, 1);
    EXPECT_EQ(finished.out, "return value 1\n");
    EXPECT_EQ(finished.err,
              "tavstrg: TAV_StorageThread.StartMonitoringThread: ServiceMode is non-Service FAILED (status 1)\n");
    EXPECT_TRUE(leftNothing(finished));
}

TEST_F(Tool, InServiceModeOnlyTheThreadAnswersUntilItRuns)
{
    expectFailure(runSmall({"--service-mode", "enum", "HardDisk"}), 1,
                  "tavstrg: TAV_StorageHardDisk: ServiceMode But NonThread Failure!! (status 1)");
    EXPECT_EQ(runSmall({"--service-mode", "get", "Thread"}).out,
              "TAV_StorageThread\n  ThreadRunning  0 (Not running)\n");
}

TEST_F(Tool, AnArgumentOutOfItsRangeIsNotSent)
{
    for (const auto &[argument, range] : {std::pair{"HardDiskSmartMode=abc", "from 0 to 1"},
                                          {"HardDiskSmartMode=", "from 0 to 1"},
                                          {"HardDiskSmartMode=0x0", "from 0 to 1"},
                                          {"HardDiskSmartMode=2", "from 0 to 1"},
                                          {"MonitorCycle=20x", "from 10 to 3600"},
                                          {"MonitorCycle= 20", "from 10 to 3600"},
                                          {"MonitorCycle=9", "from 10 to 3600"},
                                          {"MonitorCycle=3601", "from 10 to 3600"},
                                          {"MonitorCycle=4294967316", "from 10 to 3600"}}) {
        const std::string method = std::string(argument).starts_with("H") ? "SetHardDiskSmartMode" : "SetMonitorCycle";
        const Finished finished = runSmall({"call", "Config", method, argument});
        EXPECT_EQ(finished.status, 2) << argument;
        EXPECT_THAT(finished.err, MatchesRegex("tavstrg: [^\n]+ \\(see tavstrg call --help\\)\n"));
        EXPECT_THAT(finished.err, HasSubstr(range));
    }
    EXPECT_EQ(runSmall({"call", "Config", "SetMonitorCycle"}).status, 2);
    EXPECT_EQ(runSmall({"call", "Config", "SetMonitorCycle", "MonitorCycle=20", "monitorcycle=30"}).status, 2);
    for (const char *cycle : {"MonitorCycle=10", "MonitorCycle=3600"}) { // as far as the provider goes
        EXPECT_EQ(runSmall({"call", "Config", "SetMonitorCycle", cycle}).status, 0);
    }
}

TEST_F(Tool, AMisspeltNameIsNamedWithTheNearestAndOneHint)
{
    expectFailure(run({"shwo"}), 2, "tavstrg: unknown command \"shwo\"; did you mean show? (see tavstrg --help)");
    expectFailure(run({"--json", "floppies", "1"}), 2, "tavstrg: unknown command \"floppies\" (see tavstrg --help)");
    expectFailure(run({"enum", "HardDsk"}), 2,
                  "tavstrg: unknown class \"HardDsk\"; did you mean HardDisk? (see tavstrg classes)");
    expectFailure(run({"call", "Config", "SetCycle"}), 2,
                  "tavstrg: TAV_StorageConfig has no method \"SetCycle\" (see tavstrg classes)");
    expectFailure(run({"call", "Config", "SetMonitrCycle"}), 2,
                  "tavstrg: TAV_StorageConfig has no method \"SetMonitrCycle\"; did you mean SetMonitorCycle? (see "
                  "tavstrg classes)");
    expectFailure(run({"get", "Tape"}), 2, "tavstrg: get: TAV_StorageTape needs an INDEX (see tavstrg get --help)");
    EXPECT_THAT(run({"show", "--colour"}).err, HasSubstr("(see tavstrg show --help)"));
    EXPECT_THAT(run({"sh\x1b[31mow"}).err, testing::Not(HasSubstr("\x1b"))) << "no text commands the terminal";
}

TEST_F(Tool, TracePrintsWhatTheProviderTraces)
{
    const Finished text = runSmall({"--trace", "get", "Config"});
    EXPECT_EQ(text.status, 0);
    EXPECT_THAT(text.err, HasSubstr("\ntrace: 3 TAV_StorageProviderGetInstance: ##start##\n"));
    EXPECT_EQ(text.out, runSmall({"get", "Config"}).out);
    const Finished document = runSmall({"--json", "--trace", "get", "Config"});
    EXPECT_EQ(json::parse(document.err.substr(0, document.err.find('\n')))["command"], "get");
    EXPECT_TRUE(leftNothing(document));
}

TEST_F(Tool, TheEnvironmentDoesNotMakeThisMachineASimulatedOneForRoot)
{
    if (geteuid() != 0) {
        GTEST_SKIP() << "needs root";
    }
    const Finished finished =
        runProgram({kTool, "show"}, {"LC_ALL=C", "TAVSIM_MACHINE=" TAV_SOURCE_DIR "/examples/machines/server.json",
                                     "TMPDIR=" + (directory_ / "tmp").string()});
    EXPECT_THAT(finished.out, testing::Not(HasSubstr("simulated")));
    EXPECT_THAT(finished.out, testing::Not(HasSubstr("mptsas")));
    EXPECT_TRUE(leftNothing(finished));
}

// In a user namespace of its own the tool is not root, and the files of the test are still its own.
TEST_F(Tool, ASimulatedMachineOfTheEnvironmentIsAlwaysSaidToBeOne)
{
    const auto runAsUser = [this](std::vector<std::string> words) {
        words.insert(words.begin(), {"unshare", "--user", kTool});
        std::vector<std::string> with = environment();
        with.push_back("TAVSIM_MACHINE=" + (directory_ / "small.json").string());
        return runProgram(words, with);
    };
    if (runProgram({"unshare", "--user", "true"}, environment()).status != 0) {
        GTEST_SKIP() << "no user namespaces here";
    }
    const std::string note =
        "this is the simulated machine " + (directory_ / "small.json").string() + ", which TAVSIM_MACHINE names";
    for (const char *command : {"show", "disks", "health", "metrics"}) {
        EXPECT_THAT(runAsUser({command}).err, testing::StartsWith("tavstrg: " + note + "\n")) << command;
        const Finished asJson = runAsUser({"--json", command});
        EXPECT_THAT(asJson.err, HasSubstr(note)) << command;
        EXPECT_TRUE(json::accept(asJson.err.substr(0, asJson.err.find('\n')))) << command;
    }
}

TEST_F(Tool, ATooDeeplyNestedMachineIsAFailureOfEveryCommand)
{
    const std::string file =
        write("deep.json", "{\"hosts\": " + std::string(100000, '[') + std::string(100000, ']') + "}");
    for (const char *command : {"show", "metrics", "check", "watch", "disks"}) {
        const Finished finished = run({"--machine", file, command});
        EXPECT_EQ(finished.status, 1) << command;
        EXPECT_THAT(finished.err, MatchesRegex("tavstrg: .*/deep\\.json: [^\n]*nested[^\n]*\n"));
        EXPECT_TRUE(leftNothing(finished));
    }
}

TEST_F(Tool, OutputThatCannotBeWrittenIsAFailure)
{
    const Finished finished = run({"--machine", (directory_ / "small.json").string(), "show"}, StandardOutput::full);
    EXPECT_EQ(finished.status, 1);
    EXPECT_EQ(finished.err, "tavstrg: standard output: No space left on device\n");
    EXPECT_TRUE(leftNothing(finished));
}

TEST_F(Tool, AReaderThatWentAwayLeavesNothingBehind)
{
    const Finished finished = run({"--machine", (directory_ / "small.json").string(), "show"}, StandardOutput::unread);
    EXPECT_NE(finished.status, 0);
    EXPECT_TRUE(leftNothing(finished));
}

TEST_F(Tool, ASignalLeavesNothingBehind)
{
    const Finished finished =
        run({"--machine", (directory_ / "small.json").string(), "show"}, StandardOutput::kept, SIGTERM);
    EXPECT_EQ(finished.signal, SIGTERM);
    EXPECT_TRUE(leftNothing(finished));
}

TEST_F(Tool, ATerminalThatKnowsUtf8GetsBoxCharacters)
{
    const Finished finished = runProgram({kTool, "--machine", (directory_ / "small.json").string(), "show"},
                                         {"LC_ALL=C.UTF-8", "TMPDIR=" + (directory_ / "tmp").string()});
    EXPECT_THAT(finished.out, HasSubstr("└── Controller 1"));
}

// A machine whose only disk predicts its failure.
std::string failingMachine()
{
    std::string machine = kSmallMachine;
    const std::string place = "\"sectors\": 16065000";
    return machine.replace(machine.find(place), place.size(), place + ", \"smart\": {\"failing\": true}");
}

TEST_F(Tool, AFailingDiskIsMarkedAndNoFailureOfTheTool)
{
    const Finished finished = run({"--machine", write("failing.json", failingMachine()), "show"});
    EXPECT_EQ(finished.status, 0) << finished.err;
    EXPECT_THAT(finished.out, HasSubstr("|-- !! 0:0:0:0  sda  hard disk 1     7.7 GiB  FAILURE PREDICTED  ATA SMALL"));
    EXPECT_THAT(finished.out, HasSubstr("\nHealth: 1 of 1 disk predicts failure: sda (0:0:0:0, serial SER-1)\n"));
}

struct ToolColourCase {
    std::vector<std::string> words;
    std::vector<std::string> environment;
    StandardOutput out;
    bool coloured;
};

TEST_F(Tool, ColoursOnATerminalOrOnRequest)
{
    const std::string machine = write("failing.json", failingMachine());
    for (const ToolColourCase &given :
         std::vector<ToolColourCase>{{{}, {"TERM=xterm", "NO_COLOR="}, StandardOutput::terminal, true},
                                     {{}, {"TERM=xterm", "NO_COLOR=1"}, StandardOutput::terminal, false},
                                     {{}, {"TERM=dumb", "NO_COLOR="}, StandardOutput::terminal, false},
                                     {{"--color=never"}, {"TERM=xterm", "NO_COLOR="}, StandardOutput::terminal, false},
                                     {{}, {"TERM=xterm", "NO_COLOR="}, StandardOutput::kept, false},
                                     {{"--color=always"}, {"TERM=xterm", "NO_COLOR=1"}, StandardOutput::kept, true}}) {
        std::vector<std::string> words = {kTool, "--machine", machine, "show"};
        words.insert(words.end(), given.words.begin(), given.words.end());
        std::vector<std::string> environment = {"LC_ALL=C", "TMPDIR=" + (directory_ / "tmp").string()};
        environment.insert(environment.end(), given.environment.begin(), given.environment.end());
        const Finished finished = runProgram(words, environment, given.out);
        EXPECT_EQ(finished.status, 0) << finished.err;
        EXPECT_THAT(finished.out, HasSubstr("FAILURE PREDICTED"));
        EXPECT_EQ(finished.out.find('\x1b') != std::string::npos, given.coloured)
            << testing::PrintToString(given.environment);
    }
}

TEST_F(Tool, AClosedStandardOutputIsAFailure)
{
    for (const char *command : {"show", "watch", "classes"}) {
        const Finished finished =
            run({"--machine", (directory_ / "small.json").string(), command}, StandardOutput::closed);
        EXPECT_EQ(finished.status, 1);
        EXPECT_EQ(finished.err, "tavstrg: standard output: Bad file descriptor\n");
        EXPECT_TRUE(leftNothing(finished));
    }
}

} // namespace

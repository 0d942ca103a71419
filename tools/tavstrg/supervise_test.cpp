// SPDX-License-Identifier: Apache-2.0
// Signals while a disk hangs: every command ends at once and leaves nothing behind.

#include "tavstrg/supervise.h"

#include "support/tool_fixture.h"
#include "tavstrg/failure.h"
#include "tavstrg/surroundings.h"

#include <gmock/gmock.h>
#include <nlohmann/json.hpp>

#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <functional>
#include <ostream>
#include <thread>

namespace {

using namespace tool::testing_support;
using nlohmann::json;
using testing::HasSubstr;

struct Hung {
    const char *name;
    std::vector<std::string> words;
    int signal;
    const char *hanging; // what the command says when the disk hangs
};

constexpr const char *kTraced = "TAVStorageGetSCSIDeviceSerialNumber: _IN_"; // of commands that ask the provider
constexpr const char *kWaiting = "Asking the disks";                         // of the others, on a terminal

// Of the end of a command: much less than the hang, much more than a busy machine needs.
constexpr std::chrono::seconds kSoon{5};

void PrintTo(const Hung &hung, std::ostream *out)
{
    *out << hung.name;
}

class HungDisk : public ToolTest, public testing::WithParamInterface<Hung> {
protected:
    std::string hangingMachine() const
    {
        json machine = json::parse(kSmallMachine);
        machine["hosts"][0]["devices"][0]["faults"] =
            json::parse(R"([{"on": "identity", "hangSeconds": 60}, {"on": "ata", "hang": true}])");
        return write("hanging.json", machine.dump());
    }
};

TEST_P(HungDisk, DoesNotKeepACommandFromEnding)
{
    const bool traces = GetParam().hanging == kTraced;
    std::vector<std::string> words = {kTool, "--machine", hangingMachine()};
    if (traces) {
        words.emplace_back("--trace");
    }
    words.insert(words.end(), GetParam().words.begin(), GetParam().words.end());
    Running running(words, environment(), traces ? 0 : 80);
    ASSERT_TRUE(running.says(GetParam().hanging));
    const auto begun = std::chrono::steady_clock::now();
    running.send(GetParam().signal);
    const Finished finished = running.finish();
    EXPECT_LT(std::chrono::steady_clock::now() - begun, kSoon);
    EXPECT_EQ(finished.signal, GetParam().signal);
    EXPECT_EQ(finished.out, "");
    EXPECT_TRUE(leftNothing(finished));
}

INSTANTIATE_TEST_SUITE_P(
    Commands, HungDisk,
    testing::Values(Hung{"Show", {"show"}, SIGINT, kTraced}, Hung{"ShowOnTerminal", {"show"}, SIGINT, kWaiting},
                    Hung{"MetricsOfClasses", {"metrics", "--classes"}, SIGTERM, kTraced},
                    Hung{"Enum", {"enum", "HardDisk"}, SIGHUP, kTraced},
                    Hung{"Get", {"get", "HardDisk", "1"}, SIGTERM, kTraced},
                    Hung{"Call", {"call", "Config", "SetMonitorCycle", "MonitorCycle=120"}, SIGTERM, kTraced},
                    Hung{"Watch", {"watch"}, SIGTERM, kTraced}, Hung{"Check", {"check"}, SIGINT, kWaiting},
                    Hung{"Disks", {"disks"}, SIGINT, kWaiting}, Hung{"Disk", {"disk", "sda"}, SIGTERM, kWaiting},
                    Hung{"Health", {"health"}, SIGHUP, kWaiting}, Hung{"Metrics", {"metrics"}, SIGTERM, kWaiting},
                    Hung{"Report", {"report", "-"}, SIGINT, kWaiting},
                    Hung{"Record", {"record", "-"}, SIGTERM, kWaiting}),
    [](const auto &test) { return std::string(test.param.name); });

using ThreadOfAHungDisk = ToolTest;

// The thread has begun its first pass when the disk hangs.
TEST_F(ThreadOfAHungDisk, IsLeftBehindByAWatchThatEnds)
{
    std::filesystem::create_directory(directory_ / "state");
    const std::vector<std::string> words = {
        kTool,     "--machine", (directory_ / "small.json").string(), "--state", (directory_ / "state").string(),
        "--trace", "watch"};
    {
        Running first(words, environment());
        ASSERT_TRUE(first.says("- sleep[60]sec -"));
        first.send(SIGINT);
        ASSERT_EQ(first.finish().status, 0); // from here on nothing is collected before the thread runs
    }
    json machine = json::parse(kSmallMachine);
    machine["hosts"][0]["devices"][0]["faults"] = json::parse(R"([{"on": "identity", "hangSeconds": 60}])");
    write("small.json", machine.dump());
    Running watch(words, environment());
    ASSERT_TRUE(watch.says("TAVStorageGetSCSIDeviceSerialNumber: _IN_"));
    ASSERT_TRUE(watch.says("watching"));
    const auto begun = std::chrono::steady_clock::now();
    watch.send(SIGINT);
    const Finished finished = watch.finish();
    EXPECT_LT(std::chrono::steady_clock::now() - begun, kSoon);
    EXPECT_TRUE(leftNothing(finished));
}

class Supervised : public testing::Test {
protected:
    static tool::Outcome run(const std::function<tool::Outcome()> &work)
    {
        const tool::SignalsWait signals;
        return tool::supervised(work, tool::Ending::atOnce, false);
    }
};

TEST_F(Supervised, ReturnsTheOutcomeOfTheWork)
{
    const std::string much(300000, 'x'); // more than a pipe holds
    const tool::Outcome outcome = run([&] { return tool::Outcome{7, much, "two\nlines", 6}; });
    EXPECT_EQ(outcome.status, 7);
    EXPECT_EQ(outcome.output, much);
    EXPECT_EQ(outcome.error, "two\nlines");
    EXPECT_EQ(outcome.cimStatus, 6);
}

TEST_F(Supervised, ReturnsFailuresAndCrashesAsFailures)
{
    EXPECT_EQ(run([]() -> tool::Outcome { throw tool::Failure("no", 4); }).error, "no");
    EXPECT_EQ(run([]() -> tool::Outcome { throw tool::Failure("no", 4); }).cimStatus, 4);
    EXPECT_EQ(run([]() -> tool::Outcome { throw std::bad_alloc(); }).status, 1);
    const tool::Outcome crashed = run([]() -> tool::Outcome {
        raise(SIGKILL);
        return {};
    });
    EXPECT_EQ(crashed.status, 1);
    EXPECT_THAT(crashed.error, HasSubstr("signal 9"));
}

TEST_F(Supervised, EndsWithTheProcessThatStartedIt)
{
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    const pid_t parent = fork();
    if (parent == 0) {
        close(ends[0]);
        run([]() -> tool::Outcome {
            std::this_thread::sleep_for(std::chrono::seconds(60));
            return {};
        });
        _exit(0);
    }
    close(ends[1]);
    std::this_thread::sleep_for(std::chrono::milliseconds(200));
    kill(parent, SIGKILL);
    char byte = 0;
    EXPECT_EQ(read(ends[0], &byte, 1), 0) << "both ends of the pipe in both processes are closed";
    close(ends[0]);
    int status = 0;
    waitpid(parent, &status, 0);
}

} // namespace

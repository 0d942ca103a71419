// SPDX-License-Identifier: Apache-2.0
// Alerts about single disks by the provider as it ships: alone, with all options, and across kills.
#include "scenarios/child.h"
#include "scenarios/monitored.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <filesystem>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <map>
#include <random>
#include <thread>
#include <unistd.h>

namespace {

using machines::json;
using scenario::Server;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr char kData[] = "/opt/qlm/tavkit_sa/data";

json diskOf(const std::string &serial, bool failing = false)
{
    json disk = machines::ataDisk("MODEL", serial, uint64_t{1} << 30);
    disk["smart"] = {{"failing", failing}};
    return disk;
}

std::string machineWith(const std::vector<json> &disks, const std::string &options)
{
    json machine = machines::withDevices(disks);
    machine["agent"] = {{"libraries", true}};
    machine["files"]["options.inf"] = options;
    return machines::text(machine);
}

// The events about single disks, shortly, in the order in which they came.
std::vector<std::string> events(const scenario::Agent &agent)
{
    const std::map<std::string, std::string> names = {{"0x40040834", "added"},      {"0x80040835", "removed"},
                                                      {"0x40040836", "replaced"},   {"0x80040837", "failing"},
                                                      {"0xC0040838", "unreadable"}, {"0x40040839", "readable"}};
    std::vector<std::string> all;
    for (const json &alert : agent.alertLines()) {
        if (const auto name = names.find(alert["eventId"]); name != names.end()) {
            std::string text = name->second;
            for (size_t i : {2U, 5U}) {
                const std::string string = i < alert["strings"].size() ? alert["strings"][i].get<std::string>() : "";
                text += string.empty() ? "" : " " + string.substr(string.find(" : ") + 3);
            }
            all.push_back(text);
        }
    }
    return all;
}

class DiskAlerts : public testing::TestWithParam<const char *> {
protected:
    void change(const std::vector<json> &disks) { machine.change(machineWith(disks, GetParam())); }
    // With uevents, the pass that a sleep was ended for may have begun before a change: the second one has seen it.
    bool passes() { return steps.pass() && steps.pass(); }

    scenario::Agent agent;
    sim::Machine machine{machineWith({diskOf("A"), diskOf("B")}, GetParam())};
    scenario::Steps steps;
    Server server{scenario::inServiceMode()};
};

TEST_P(DiskAlerts, TellEachTransitionOnceAlsoAfterARestart)
{
    ASSERT_TRUE(steps.start(*server));
    EXPECT_THAT(events(agent), IsEmpty()) << "nothing is added in the first pass";
    change({diskOf("A"), diskOf("C")});
    ASSERT_TRUE(passes());
    EXPECT_THAT(events(agent), ElementsAre("replaced C B"));
    EXPECT_EQ(scenario::stopThread(*server), 0);
    change({diskOf("C", true)});
    ASSERT_TRUE(steps.start(*server));
    ASSERT_TRUE(passes());
    EXPECT_THAT(events(agent), ElementsAre("replaced C B", "removed A", "failing C"));
    server->stop();
    scenario::expectNothingLeft(*server);
}

INSTANTIATE_TEST_SUITE_P(Options, DiskAlerts, testing::Values("disk-alerts\n", "all\n"),
                         [](const auto &testInfo) { return std::string(testInfo.param).substr(0, 3); });

// Together with the options that keep a dead disk in the inventory. With sleeping-disks a disk is asked only after
// other programs have used it.
class DeadDisk : public DiskAlerts {};

TEST_P(DeadDisk, IsUnreadableOnceAndReadableAgainOnce)
{
    json dead = diskOf("B");
    dead["openError"] = "ENXIO";
    ASSERT_TRUE(steps.start(*server));
    for (int pass = 0; pass < 2; ++pass) {
        change({diskOf("A"), dead});
        machine.useDisk("/dev/sdb", 1, 0);
        ASSERT_TRUE(steps.pass());
        EXPECT_THAT(events(agent), ElementsAre("unreadable B"));
    }
    for (int pass = 0; pass < 2; ++pass) {
        change({diskOf("A"), diskOf("B")});
        machine.useDisk("/dev/sdb", 1, 0);
        ASSERT_TRUE(steps.pass());
        EXPECT_THAT(events(agent), ElementsAre("unreadable B", "readable B"));
    }
}

TEST_P(DeadDisk, SleepingOneGivesNoEvent)
{
    json asleep = diskOf("B", true);
    ASSERT_TRUE(steps.start(*server));
    change({diskOf("A"), asleep});
    machine.useDisk("/dev/sdb", 1, 0);
    ASSERT_TRUE(steps.pass());
    EXPECT_THAT(events(agent), ElementsAre("failing B"));
    asleep["power"] = {{"state", "standby"}};
    for (int pass = 0; pass < 3; ++pass) {
        change({diskOf("A"), asleep});
        ASSERT_TRUE(steps.pass());
        EXPECT_THAT(events(agent), ElementsAre("failing B"));
    }
}

INSTANTIATE_TEST_SUITE_P(Options, DeadDisk, testing::Values("disk-alerts\ndisk-identity\nsmart-state\n", "all\n"),
                         [](const auto &testInfo) { return std::string(testInfo.param).substr(0, 3); });

// Without disk-identity a dead disk ends the inventory, and with it the comparison.
class DeadDiskAlone : public DiskAlerts {};

TEST_P(DeadDiskAlone, FailsThePassAndGivesNoEvent)
{
    json dead = diskOf("B");
    dead["openError"] = "ENXIO";
    ASSERT_TRUE(steps.start(*server));
    change({diskOf("A"), dead});
    ASSERT_TRUE(steps.pass());
    EXPECT_TRUE(agent.traced("strgCheckConfigChange() Failure!!"));
    EXPECT_THAT(events(agent), IsEmpty());
    change({diskOf("A"), diskOf("B")});
    ASSERT_TRUE(steps.pass());
    EXPECT_THAT(events(agent), IsEmpty()) << "nor when it is back";
}

INSTANTIATE_TEST_SUITE_P(Options, DeadDiskAlone, testing::Values("disk-alerts\n"),
                         [](const auto &) { return std::string("dis"); });

// A disk that hangs is set aside, and shown with the serial number that the kernel keeps. Of its own one a full field
// runs on into the next one, which the kernel's does not.
class SetAsideDisk : public DiskAlerts {
protected:
    SetAsideDisk()
    {
        json runsOn = diskOf("B");
        runsOn["identifyWords"] = {{"20", 3}};
        change({diskOf("A"), runsOn});
    }
    ~SetAsideDisk() override { machine.release(kNode); }

    // A pass hangs, and a stop leaves the disk behind, without the wait for its deadline.
    void leaveBehind()
    {
        machine.hold(kNode);
        machine.useDisk(kNode, 1, 0);
        ASSERT_EQ(scenario::startThread(*server), 0);
        ASSERT_TRUE(machine.awaitWaiting(kNode, 1, 60));
        ASSERT_EQ(scenario::stopThread(*server), 0);
    }
    bool isAsked()
    {
        machine.forgetCommands();
        const bool passed = passes();
        const auto commands = machine.commands();
        return passed && std::any_of(commands.begin(), commands.end(),
                                     [](const sim::Command &command) { return command.device == kNode; });
    }

    static constexpr const char *kNode = "/dev/sdb";
};

TEST_P(SetAsideDisk, IsUnreadableOnceAndReadableAgainOnce)
{
    ASSERT_TRUE(steps.start(*server));
    EXPECT_EQ(scenario::stopThread(*server), 0);
    leaveBehind();
    ASSERT_TRUE(steps.start(*server));
    ASSERT_TRUE(passes());
    EXPECT_TRUE(agent.traced("still does not answer"));
    EXPECT_EQ(machine.waiting(kNode), 1U);
    EXPECT_THAT(events(agent), ElementsAre("unreadable B")) << "neither removed nor replaced";
    machine.release(kNode);
    EXPECT_TRUE(scenario::await([this] { return isAsked(); }));
    ASSERT_TRUE(passes());
    EXPECT_THAT(events(agent), ElementsAre("unreadable B", "readable B"));
    server->stop();
    scenario::expectNothingLeft(*server);
}

INSTANTIATE_TEST_SUITE_P(Options, SetAsideDisk, testing::Values("disk-alerts\nside-by-side\ndisk-names\n", "all\n"),
                         [](const auto &testInfo) { return std::string(testInfo.param).substr(0, 3); });

// The base system tells none of it, also where the dead disk is kept in the inventory.
class DiskAlertsOff : public DiskAlerts {};

TEST_P(DiskAlertsOff, NoTransitionIsTold)
{
    json dead = diskOf("B");
    dead["openError"] = "ENXIO";
    ASSERT_TRUE(steps.start(*server));
    for (const auto &disks : {std::vector{diskOf("A"), dead}, {diskOf("A"), diskOf("C")}, {diskOf("C")}}) {
        change(disks);
        ASSERT_TRUE(steps.pass());
    }
    EXPECT_THAT(events(agent), IsEmpty());
    EXPECT_THAT(agent.alerts(), ElementsAre(scenario::kConfigurationChange)) << "of another number of disks";
}

INSTANTIATE_TEST_SUITE_P(Options, DiskAlertsOff, testing::Values("disk-identity\nsmart-state\n"),
                         [](const auto &) { return std::string("Off"); });

// Progress of a process that is killed.
struct Progress {
    std::atomic<bool> ready{false};
    char root[256] = {}; // of its machine, to be removed when it is killed
};

// The disks of round r. Round by round one is replaced; one fails now and then; one comes and goes.
std::vector<json> disksOf(unsigned round)
{
    std::vector<json> disks = {diskOf("D" + std::to_string(round)), diskOf("F", round % 2 == 1)};
    if (round % 3 != 0) {
        disks.push_back(diskOf("X"));
    }
    return disks;
}

// The events of the step to a round, in the order in which a pass finds them.
void addExpected(unsigned round, std::vector<std::string> &expected)
{
    if (round % 3 == 0) {
        expected.emplace_back("removed X");
    }
    expected.push_back("replaced D" + std::to_string(round) + " D" + std::to_string(round - 1));
    if (round % 2 == 1) {
        expected.emplace_back("failing F");
    }
    if (round % 3 == 1) {
        expected.emplace_back("added X");
    }
}

// Finishes what the process before left, then takes the step to the next round. Is killed, unless calls is negative.
void monitor(const std::string &data, Progress &progress, unsigned round, int calls)
{
    const char *const options = "disk-alerts\nfirst-devices\n";
    sim::Machine machine(machineWith(disksOf(round), options));
    std::snprintf(progress.root, sizeof progress.root, "%s", machine.where("").c_str());
    machine.link(kData, data);
    scenario::Steps steps;
    Server server(scenario::inServiceMode());
    EXPECT_TRUE(steps.start(*server));
    if (calls < 0) {
        server->stop();
        return;
    }
    machine.change(machineWith(disksOf(round + 1), options));
    if (calls > 0) {
        sim::atNth(sim::Call::write, static_cast<unsigned>(calls), [] { ::kill(::getpid(), SIGKILL); });
    }
    progress.ready = true;
    steps.pass();
    for (;;) {
        ::pause();
    }
}

class KilledMonitor : public testing::Test {
protected:
    // Runs one process until it is killed: after a random time, or at a random write.
    void runAndKill(unsigned round)
    {
        progress->ready = false;
        const int calls = round % 2 == 0 ? 0 : 1 + static_cast<int>(random() % 30);
        scenario::Child child([&] { monitor(data, *progress, round, calls); });
        while (!progress->ready) {
            std::this_thread::yield();
        }
        std::this_thread::sleep_for(std::chrono::microseconds(random() % 12000));
        if (calls > 0) {
            std::this_thread::sleep_for(std::chrono::milliseconds(20)); // it may not make so many
        }
        child.send(SIGKILL);
        EXPECT_EQ(child.wait().signal, SIGKILL);
        process::removeSegmentsOf(child.pid());
        std::error_code ignored;
        std::filesystem::remove_all(progress->root, ignored);
    }

    scenario::Agent agent;
    sim::Machine machine{machineWith(disksOf(0), "disk-alerts\n")};
    const std::string data = machine.where(kData);
    scenario::Shared<Progress> progress;
    std::mt19937 random{20261121};
};

TEST_F(KilledMonitor, GivesOneEventPerTransition)
{
    constexpr unsigned kKills = 200;
    std::vector<std::string> expected;
    for (unsigned round = 0; round < kKills && !HasFailure(); ++round) {
        runAndKill(round);
        addExpected(round + 1, expected);
    }
    scenario::Child last([&] { monitor(data, *progress, kKills, -1); });
    EXPECT_EQ(last.wait().status, 0);

    // An event that was being handed over when its process was killed may have come already; it then says so.
    std::vector<std::string> numbers;
    std::vector<std::string> once;
    unsigned repeated = 0;
    const std::vector<std::string> came = events(agent);
    size_t at = 0;
    for (const json &alert : agent.alertLines()) {
        if (alert["strings"].size() < 5) {
            continue;
        }
        const std::string number = alert["strings"][4];
        const std::string plain = number.substr(0, number.find(" ("));
        const bool again = !numbers.empty() && numbers.back() == plain;
        if (again) {
            EXPECT_NE(plain, number) << "came twice and does not say so";
            ++repeated;
        } else {
            numbers.push_back(plain);
            once.push_back(came[at]);
            EXPECT_EQ(plain, "Event : " + std::to_string(numbers.size()));
        }
        ++at;
    }
    EXPECT_EQ(once, expected);
    RecordProperty("repeated", static_cast<int>(repeated));
    EXPECT_LT(repeated, kKills / 10) << "the moment in which a kill repeats an event is short";
}

} // namespace

// SPDX-License-Identifier: Apache-2.0
// Between two passes the provider costs nothing: no thread wakes or uses CPU time.
#include "scenarios/monitored.h"

#include <chrono>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <map>
#include <sstream>
#include <thread>
#include <unistd.h>

namespace {

using scenario::Server;

struct Cost {
    unsigned long switches = 0, ticks = 0;
    bool operator==(const Cost &) const = default;
};

void PrintTo(const Cost &cost, std::ostream *out)
{
    *out << cost.switches << " context switches, " << cost.ticks << " ticks";
}

Cost costOf(const std::string &task)
{
    Cost cost;
    std::ifstream status(task + "/status");
    for (std::string word; status >> word;) {
        if (word == "voluntary_ctxt_switches:" || word == "nonvoluntary_ctxt_switches:") {
            unsigned long number = 0;
            status >> number;
            cost.switches += number;
        }
    }
    std::ifstream stat(task + "/stat");
    std::string text;
    std::getline(stat, text);
    std::istringstream fields(text.substr(text.rfind(')') + 1));
    std::string skipped;
    for (int field = 3; field < 14; ++field) { // utime and stime are the 14th and 15th, see proc(5)
        fields >> skipped;
    }
    unsigned long user = 0;
    unsigned long system = 0;
    fields >> user >> system;
    cost.ticks = user + system;
    return cost;
}

// CPU time and wake-ups of every thread of this process but the calling one.
std::map<std::string, Cost> costs()
{
    std::map<std::string, Cost> all;
    for (const auto &task : std::filesystem::directory_iterator("/proc/self/task")) {
        if (const std::string id = task.path().filename(); id != std::to_string(::gettid())) {
            all[id] = costOf(task.path());
        }
    }
    return all;
}

class Idle : public testing::TestWithParam<const char *> {};

TEST_P(Idle, NoThreadWakesBetweenTwoPasses)
{
    sim::Machine machine(scenario::exampleMachine("workstation"));
    machine.write("/opt/qlm/tavkit_sa/data/options.inf", GetParam());
    Server server(scenario::inServiceMode());
    ASSERT_EQ(scenario::startThread(*server), 0);
    ASSERT_TRUE(server->enumInstances("TAV_StorageHardDisk").ok());
    std::map<std::string, Cost> before;
    for (int quiet = 0; quiet < 10;) { // until the first passes are over: a second without activity
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
        std::map<std::string, Cost> now = costs();
        quiet = now == before ? quiet + 1 : 0;
        before = std::move(now);
    }
    ASSERT_GT(sim::callsMade(sim::Call::write), 0U) << "a pass has been";
    EXPECT_EQ(before.size(), 1U) << "the provider has one thread";
    std::this_thread::sleep_for(std::chrono::seconds(4));
    EXPECT_EQ(costs(), before);
    EXPECT_EQ(scenario::stopThread(*server), 0);
    EXPECT_EQ(costs().size(), 0U);
}

INSTANTIATE_TEST_SUITE_P(Options, Idle, testing::Values("", "uevents\n"),
                         [](const auto &testInfo) { return testInfo.param[0] == '\0' ? "None" : "Uevents"; });

} // namespace

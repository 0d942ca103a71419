// SPDX-License-Identifier: Apache-2.0
// The provider as it ships, in real time, at a cycle of an hour: it follows the kernel's events about disks.
#include "scenarios/monitored.h"

#include <chrono>
#include <gtest/gtest.h>
#include <thread>

namespace {

using scenario::Server;
using Clock = std::chrono::steady_clock;

constexpr double kSoon = 5; // seconds in which a disk that was plugged in is in the inventory

double secondsSince(Clock::time_point begin)
{
    return std::chrono::duration<double>(Clock::now() - begin).count();
}

std::string machineWith(size_t disks, const char *options)
{
    machines::json machine = machines::disks(disks);
    machine["files"]["options.inf"] = options;
    return machines::text(machine);
}

class Uevents : public testing::TestWithParam<const char *> {
protected:
    Uevents()
    {
        const broker::Reply set = server->invokeMethod("TAV_StorageConfig", "SetMonitorCycle",
                                                       {{"MonitorCycle", broker::Value::text("3600")}});
        EXPECT_TRUE(set.ok() || !set.message.empty());
    }
    size_t disks() { return server->enumInstances("TAV_StorageHardDisk").instances.size(); }
    // Passes so far: each asks for the kernel's release once.
    static unsigned passes() { return sim::callsMade(sim::Call::uname); }
    // Waits until no pass has begun for a second and a half: longer than a burst.
    static void settle()
    {
        for (unsigned before = passes() + 1; before != passes();) {
            before = passes();
            std::this_thread::sleep_for(std::chrono::milliseconds(1500));
        }
    }

    sim::Machine machine{machineWith(2, GetParam())};
    Server server{scenario::inServiceMode()};
};

TEST_P(Uevents, ADiskThatIsPluggedInIsInTheInventorySoon)
{
    ASSERT_EQ(scenario::startThread(*server), 0);
    settle();
    ASSERT_EQ(disks(), 2U);
    Clock::time_point begin = Clock::now();
    machine.change(machineWith(3, GetParam()));
    ASSERT_TRUE(scenario::await([this] { return disks() == 3; }));
    EXPECT_LT(secondsSince(begin), kSoon);
    begin = Clock::now();
    machine.change(machineWith(2, GetParam()));
    ASSERT_TRUE(scenario::await([this] { return disks() == 2; }));
    EXPECT_LT(secondsSince(begin), kSoon);
    EXPECT_EQ(scenario::stopThread(*server), 0);
}

TEST_P(Uevents, ABurstOfAHundredMakesAtMostTwoPasses)
{
    ASSERT_EQ(scenario::startThread(*server), 0);
    settle();
    const unsigned before = passes();
    for (int i = 0; i < 50; ++i) {
        machine.uevent("remove", "sda");
        machine.uevent("add", "sda");
    }
    ASSERT_TRUE(scenario::await([before] { return passes() > before; }));
    settle();
    EXPECT_LE(passes(), before + 2);
}

// udev gives such an event for each node that was open for writing.
TEST_P(Uevents, EventsThatAPassCausesMakeNoPass)
{
    ASSERT_EQ(scenario::startThread(*server), 0);
    settle();
    const unsigned before = passes();
    machine.uevent("change", "sda", 100);
    settle();
    EXPECT_EQ(passes(), before);
}

TEST_P(Uevents, AStopIsPrompt)
{
    ASSERT_EQ(scenario::startThread(*server), 0);
    settle();
    const Clock::time_point begin = Clock::now();
    EXPECT_EQ(scenario::stopThread(*server), 0);
    EXPECT_LT(secondsSince(begin), 2);
    EXPECT_EQ(machine.ueventListeners(), 0U);
    server->stop();
    scenario::expectNothingLeft(*server);
}

INSTANTIATE_TEST_SUITE_P(Options, Uevents, testing::Values("uevents\n", "uevents\ndisk-alerts\n", "all\n"),
                         [](const auto &testInfo) {
                             const std::string lines = testInfo.param;
                             return std::string(lines == "all\n" ? "All" : lines.size() > 10 ? "WithAlerts" : "Alone");
                         });

} // namespace

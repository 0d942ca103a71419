// SPDX-License-Identifier: Apache-2.0
// A disk that hangs, in the provider as it ships, with the line "side-by-side": stops, unloading, and its return.
#include "scenarios/monitored.h"

#include <algorithm>
#include <chrono>
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <iterator>
#include <thread>

namespace {

using scenario::await;
using scenario::Server;
using scenario::startThread;
using scenario::stopThread;
using scenario::threadsNow;
using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

constexpr const char *kNode = "/dev/sda";

std::string twoDisks(const char *options = "side-by-side\ndisk-names\n")
{
    nlohmann::json machine = machines::disks(2, 1); // on an adapter each
    machine["files"]["options.inf"] = options;
    return machine.dump();
}

bool wasAsked(const sim::Machine &machine, const std::string &node)
{
    const auto commands = machine.commands();
    return std::any_of(commands.begin(), commands.end(),
                       [&](const sim::Command &command) { return command.device == node; });
}

bool isLoaded()
{
    void *const library = dlopen(scenario::providerFile().c_str(), RTLD_LAZY | RTLD_NOLOAD);
    if (library != nullptr) {
        dlclose(library);
    }
    return library != nullptr;
}

class HungDisk : public testing::Test {
protected:
    HungDisk()
    {
        EXPECT_FALSE(scenario::threadRuns(*server)); // builds the store while all disks answer
        threads = threadsNow();
    }
    ~HungDisk() override { machine.release(kNode); }

    // Starts the monitoring thread and waits until its pass hangs.
    void hang()
    {
        machine.hold(kNode);
        ASSERT_EQ(startThread(*server), 0);
        ASSERT_TRUE(machine.awaitWaiting(kNode, 1, 60));
    }
    Clock::duration stopped()
    {
        const Clock::time_point begun = Clock::now();
        EXPECT_EQ(stopThread(*server), 0);
        return Clock::now() - begun;
    }
    // Waits until the threads that the provider left have ended.
    bool awaitThreads() const
    {
        return await([this] { return threadsNow() <= threads; });
    }

    sim::Machine machine{twoDisks()};
    Server server{scenario::inServiceMode()};
    long threads = 0;
};

TEST_F(HungDisk, DoesNotHoldUpAStop)
{
    hang();
    EXPECT_LT(stopped(), 2s);
    machine.release(kNode);
    EXPECT_TRUE(awaitThreads());
    server->stop();
    scenario::expectNothingLeft(*server);
}

TEST_F(HungDisk, ThatNeverComesBackIsLeftWithTheProviderLoaded)
{
    hang();
    EXPECT_LT(stopped(), 2s);
    server->stop();
    EXPECT_TRUE(isLoaded()); // the thread returns into it
    EXPECT_GT(threadsNow(), threads);
    machine.release(kNode);
    EXPECT_TRUE(awaitThreads());
    EXPECT_TRUE(isLoaded());

    // The next life of the provider joins the thread and lets the library go.
    {
        Server next{scenario::inServiceMode()};
        EXPECT_EQ(startThread(*next), 0);
        EXPECT_EQ(stopThread(*next), 0);
        next->stop();
        scenario::expectNothingLeft(*next);
    }
    EXPECT_FALSE(isLoaded());
}

TEST_F(HungDisk, DelaysAPassByItsDeadlineAndIsAskedAgainWhenItIsBack)
{
    scenario::Steps steps;
    machine.hold(kNode);
    const Clock::time_point begun = Clock::now();
    ASSERT_TRUE(steps.start(*server));
    EXPECT_LT(Clock::now() - begun, 20s);
    EXPECT_EQ(scenario::totalsOf(*server), (std::vector<uint64_t>{2, 2, 0, 2, 0, 0, 0, 0}));
    machine.forgetCommands();
    ASSERT_TRUE(steps.pass());
    EXPECT_EQ(machine.waiting(kNode), 1U); // the same request; no other one was sent
    machine.release(kNode);
    EXPECT_TRUE(await([this] { return machine.waiting(kNode) == 0; }));
    EXPECT_TRUE(await([&] {
        EXPECT_TRUE(steps.pass());
        return wasAsked(machine, kNode);
    }));
    EXPECT_EQ(stopThread(*server), 0);
    server->stop();
    scenario::expectNothingLeft(*server);
}

// A request for all disks, with the line "every-disk", whose pass hangs.
class HungEngine : public testing::Test {
protected:
    ~HungEngine() override { machine.release(kNode); }
    static std::string described()
    {
        nlohmann::json description = machines::disks(2, 1);
        description["files"]["options.inf"] = "every-disk\n";
        return description.dump();
    }

    sim::Machine machine{described()};
    Server server;
};

TEST_F(HungEngine, DoesNotHoldUpAStopAndLeavesTheProviderLoaded)
{
    ASSERT_TRUE(server->enumInstances("TAV_StorageHardDisk").ok()); // builds the store while all disks answer
    const long threads = threadsNow();
    machine.hold(kNode);
    broker::Reply reply;
    std::thread client([&] { reply = server->enumInstances("TAV_StorageDisk"); });
    ASSERT_TRUE(machine.awaitWaiting(kNode, 1, 60));
    const Clock::time_point begun = Clock::now();
    EXPECT_EQ(server->cleanupInstance(true).rc, CMPI_RC_OK);
    EXPECT_LT(Clock::now() - begun, 3s);
    client.join();
    EXPECT_EQ(reply.rc, CMPI_RC_ERR_FAILED);
    EXPECT_EQ(reply.message, "the provider is stopping");
    server->stop();
    EXPECT_TRUE(isLoaded()); // the thread returns into it
    machine.release(kNode);
    EXPECT_TRUE(await([&] { return threadsNow() <= threads; }));
    {
        Server next; // joins the thread and lets the library go
        EXPECT_EQ(next->enumInstances("TAV_StorageDisk").instances.size(), 2U);
        next->stop();
        scenario::expectNothingLeft(*next);
    }
    EXPECT_FALSE(isLoaded());
}

TEST_F(HungEngine, DoesNotHoldUpOtherClasses)
{
    EXPECT_EQ(scenario::totalsOf(*server).size(), 8U);
    machine.hold(kNode);
    std::thread client([&] { server->enumInstances("TAV_StorageDisk"); });
    ASSERT_TRUE(machine.awaitWaiting(kNode, 1, 60));
    const Clock::time_point begun = Clock::now();
    EXPECT_TRUE(server->getInstance("TAV_StorageConfig").ok()); // takes the store's lock, asks no disk
    EXPECT_LT(Clock::now() - begun, 3s);
    machine.release(kNode);
    client.join();
}

TEST(HungDiskWithoutTheLine, DelaysTheDisksOfOtherAdapters)
{
    sim::Machine machine(twoDisks("disk-names\n"));
    Server server{scenario::inServiceMode()};
    EXPECT_FALSE(scenario::threadRuns(*server)); // builds the store while all disks answer
    machine.forgetCommands();
    machine.hold(kNode);
    EXPECT_EQ(startThread(*server), 0);
    EXPECT_TRUE(machine.awaitWaiting(kNode, 1, 60));
    EXPECT_FALSE(wasAsked(machine, "/dev/sdb"));
    machine.release(kNode);
    EXPECT_TRUE(await([&] { return wasAsked(machine, "/dev/sdb"); }));
    EXPECT_EQ(stopThread(*server), 0);
}

} // namespace

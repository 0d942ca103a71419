// SPDX-License-Identifier: Apache-2.0
// What happens around the provider while it works: administrators who edit its files, and signals of the host.
#include "scenarios/monitored.h"

#include <atomic>
#include <csignal>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/time.h>
#include <thread>

namespace {

using scenario::Server;
using Json = nlohmann::json;

constexpr size_t kDisks = 6;
const char *const kFiles[] = {"storage.inf", "noscsi.inf", "tavm2ssd.inf", "options.inf"};

// Two versions of each file. The first ones manage all disks, the second ones leave out the first disk.
struct Versions {
    std::string of[2];
};
const Versions kVersions[] = {
    {{"ahci\n", "[Management Port]\nahci\n[Diagnostic Port]\nother\n"}},
    {{"# none\n", "Vendor: Model:MODEL-1000\n"}},
    {{"[Endurance Remaining]\nMODEL-1001,231,100,80,60,40,20,0\n", "[Endurance Remaining]\n"}},
    {{"# nothing\n", "clean-text\nfair-requests\n"}},
};

size_t disksSeen(const broker::Reply &reply)
{
    return reply.ok() ? reply.instances.size() : 0;
}

class Edited : public testing::Test {
protected:
    std::string pathOf(const char *name) const { return machine.where("/opt/qlm/tavkit_sa/data/" + std::string(name)); }
    static void writeInPlace(const std::string &path, const std::string &text)
    {
        std::ofstream(path, std::ios::trunc) << text;
    }
    // Edits until the object's end: puts a file in another one's place, or writes over it.
    std::thread editor(bool inPlace)
    {
        return std::thread([this, inPlace] {
            for (size_t round = 0; !ended; ++round) {
                for (size_t i = 0; i < std::size(kFiles); ++i) {
                    const std::string path = pathOf(kFiles[i]);
                    const std::string target = inPlace ? path : path + ".new";
                    writeInPlace(target, kVersions[i].of[round % 2]);
                    if (!inPlace) {
                        std::filesystem::rename(target, path);
                    }
                    ++edits;
                }
            }
        });
    }

    sim::Machine machine{machines::ofDisks(kDisks)};
    std::atomic<bool> ended = false;
    std::atomic<size_t> edits = 0;
};

// A collection reads noscsi.inf twice, to count and to build. It fails when the two are different, and the next one
// works.
bool isAllowed(const broker::Reply &reply)
{
    return reply.ok() || reply.message == "strgGetInstance() FAILED";
}

TEST_F(Edited, FilesThatAreReplacedAreReadAsOneOrTheOtherVersion)
{
    for (size_t i = 0; i < std::size(kFiles); ++i) {
        writeInPlace(pathOf(kFiles[i]), kVersions[i].of[0]);
    }
    Server server;
    ASSERT_EQ(disksSeen(server->enumInstances("TAV_StorageHardDisk")), kDisks); // a first build may fail as well
    std::thread other = editor(false);
    for (int i = 0; i < 150 || edits < 150; ++i) {
        const broker::Reply reply = server->enumInstances("TAV_StorageHardDisk");
        EXPECT_TRUE(isAllowed(reply)) << reply.message;
        EXPECT_TRUE(!reply.ok() || disksSeen(reply) == kDisks || disksSeen(reply) == kDisks - 1) << disksSeen(reply);
    }
    ended = true;
    other.join();
    server->stop();
    scenario::expectNothingLeft(*server);
}

// A file that is written over is empty for a moment, which may show as no device. The last edit counts in the end.
TEST_F(Edited, FilesThatAreWrittenOverDoNoLastingHarm)
{
    Server server;
    ASSERT_EQ(disksSeen(server->enumInstances("TAV_StorageHardDisk")), kDisks);
    std::thread other = editor(true);
    for (int i = 0; i < 150 || edits < 150; ++i) {
        const broker::Reply reply = server->enumInstances("TAV_StorageHardDisk");
        EXPECT_TRUE(isAllowed(reply) || reply.message == "NotFound Data") << reply.message;
        EXPECT_THAT(disksSeen(reply), testing::AnyOf(0, kDisks, kDisks - 1));
    }
    ended = true;
    other.join();
    for (size_t i = 0; i < std::size(kFiles); ++i) {
        writeInPlace(pathOf(kFiles[i]), kVersions[i].of[0]);
    }
    EXPECT_EQ(disksSeen(server->enumInstances("TAV_StorageHardDisk")), kDisks) << "the last edit counts";
    server->stop();
    scenario::expectNothingLeft(*server);
}

// Sends this process a signal whose handler returns, so that calls that wait end early, some thousand times a second.
// The signals go to the threads that let them in, and to those that these create.
class SignalStorm {
public:
    SignalStorm()
    {
        struct sigaction act = {};
        act.sa_handler = [](int) { ++received_; };
        ::sigaction(SIGALRM, &act, &before_); // without SA_RESTART
        block(SIG_BLOCK);
        received_ = 0;
        constexpr itimerval kEvery = {{0, 300}, {0, 300}};
        ::setitimer(ITIMER_REAL, &kEvery, nullptr);
    }
    ~SignalStorm()
    {
        constexpr itimerval kNever = {};
        ::setitimer(ITIMER_REAL, &kNever, nullptr);
        ::signal(SIGALRM, SIG_IGN); // one that is pending
        block(SIG_UNBLOCK);
        ::sigaction(SIGALRM, &before_, nullptr);
    }
    SignalStorm(const SignalStorm &) = delete;
    SignalStorm &operator=(const SignalStorm &) = delete;
    static void letIn() { block(SIG_UNBLOCK); }
    static unsigned received() { return received_; }

private:
    static void block(int how)
    {
        sigset_t set;
        ::sigemptyset(&set);
        ::sigaddset(&set, SIGALRM);
        ::pthread_sigmask(how, &set, nullptr);
    }
    static inline std::atomic<unsigned> received_ = 0;
    struct sigaction before_ = {};
};

TEST(Signals, ThatInterruptEveryCallChangeNoAnswer)
{
    const sim::Machine machine(machines::ofDisks(kDisks));
    Server server;
    const Json before = scenario::everythingOf(*server);
    const std::string state = machine.read(scenario::kStateFile);
    const SignalStorm storm;
    std::thread client([&] {
        SignalStorm::letIn();
        for (int round = 0; round < 30 || SignalStorm::received() < 200; ++round) {
            EXPECT_EQ(scenario::everythingOf(*server), before);
            EXPECT_EQ(machine.read(scenario::kStateFile), state);
        }
    });
    client.join();
}

// A second request waits a good second for the first one. With pauses that signals cut short it would give up at once.
TEST(Signals, DoNotShortenTheWaitForTheStore)
{
    Json description = machines::disks(1);
    machines::deviceAt(description, 0)["faults"] = {{{"on", "identity"}, {"delayMs", 1000}}};
    const sim::Machine machine(description.dump());
    Server server;
    ASSERT_TRUE(server->enumInstances("TAV_StorageHardDisk").ok());
    const unsigned begun = sim::callsMade(sim::Call::uname);
    std::thread first([&] { EXPECT_TRUE(server->enumInstances("TAV_StorageHardDisk").ok()); });
    ASSERT_TRUE(scenario::await([&] { return sim::callsMade(sim::Call::uname) > begun; }));
    const SignalStorm storm;
    std::thread second([&] {
        SignalStorm::letIn();
        const broker::Reply reply = server->enumInstances("TAV_StorageHardDisk");
        EXPECT_TRUE(reply.ok()) << reply.message;
        EXPECT_GT(SignalStorm::received(), 100U);
    });
    second.join();
    first.join();
}

TEST(Signals, DoNotWakeTheMonitoringThread)
{
    const scenario::Agent agent(0);
    Json description = machines::disks(1);
    description["agent"] = {{"libraries", true}};
    const sim::Machine machine(description.dump());
    Server server(scenario::inServiceMode());
    ASSERT_EQ(scenario::startThread(*server), 0);
    ASSERT_TRUE(scenario::await([&] { return agent.traced("- sleep[60]sec -"); }));
    {
        const SignalStorm storm; // of all threads the monitoring thread alone lets them in
        EXPECT_TRUE(scenario::await([&] { return SignalStorm::received() >= 1000; }));
    }
    EXPECT_FALSE(agent.traced("- wakeUp -")) << "a pass began long before the end of the cycle";
    EXPECT_EQ(scenario::stopThread(*server), 0);
}

} // namespace

// SPDX-License-Identifier: Apache-2.0
// The saved state survives failures during a save: a kill at any moment, a full disk, a failed write.
#include "records/records.h"
#include "scenarios/child.h"
#include "scenarios/generations.h"
#include "scenarios/monitored.h"

#include <atomic>
#include <chrono>
#include <cmath>
#include <csignal>
#include <cstdio>
#include <filesystem>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <random>
#include <sys/resource.h>
#include <thread>
#include <unistd.h>

using namespace tavstrg;

namespace {

using broker::Value;
using scenario::generationOf;
using scenario::machineOf;
using scenario::Server;

const std::string kData = std::filesystem::path(scenario::kStateFile).parent_path();

// Progress of a process that saves.
struct Progress {
    std::atomic<unsigned> begun{0}; // newest generation whose collection may be under way
    std::atomic<unsigned> saved{0}; // newest generation whose collection was answered, and so was saved
    std::atomic<bool> ready{false}; // the process is running
    char root[256] = {};            // of its machine, to be removed when it is killed
};

// Point at which a process kills itself; without one its parent kills it.
struct Moment {
    sim::Call kind = sim::Call::count;
    unsigned nth = 0;
};

void changeCycles(broker::Broker &broker)
{
    for (unsigned cycle = 10;; cycle = 10 + (cycle - 9) % 3591) {
        broker.invokeMethod("TAV_StorageConfig", "SetMonitorCycle",
                            {{"MonitorCycle", Value::text(std::to_string(cycle))}});
    }
}

// A machine that changes from generation to generation, each collected and saved, while another thread changes the
// configuration, which saves too. Runs until it is killed.
void saveForEver(const std::string &data, Progress &progress, Moment moment)
{
    unsigned generation = progress.begun + 1;
    sim::Machine machine(machineOf(generation));
    std::snprintf(progress.root, sizeof progress.root, "%s", machine.where("").c_str());
    machine.link(kData, data);
    sim::skipSleeps(true);
    Server server;
    server->getInstance("TAV_StorageConfig");
    progress.ready = true;
    if (moment.nth != 0) {
        sim::atNth(moment.kind, moment.nth, [] { ::kill(::getpid(), SIGKILL); });
    }
    std::thread cycles([&server] { changeCycles(*server); });
    for (;; ++generation) {
        progress.begun = generation;
        machine.change(machineOf(generation));
        while (
            !server->enumInstances("TAV_StorageHardDisk").ok()) { // the other thread held the store's lock for too long
        }
        progress.saved = generation;
    }
}

class Kill : public testing::Test {
protected:
    Kill() : data(machine.where(kData)) {}

    // Lets a process save until it is killed, and checks the file that it leaves.
    void killOne(Moment moment)
    {
        progress->ready = false;
        {
            scenario::Child child([&] { saveForEver(data, *progress, moment); });
            while (moment.nth == 0 && !progress->ready) {
                std::this_thread::yield();
            }
            if (moment.nth == 0) {
                std::this_thread::sleep_for(std::chrono::microseconds(random() % 30000));
                child.send(SIGKILL);
            }
            EXPECT_EQ(child.wait().signal, SIGKILL);
            process::removeSegmentsOf(child.pid());
        }
        std::error_code ignored;
        std::filesystem::remove_all(progress->root, ignored);
        const std::string file = machine.read(scenario::kStateFile);
        if (file.empty() && progress->saved == 0) {
            return; // killed before it had saved for the first time
        }
        ++states;
        std::string why;
        const std::optional<unsigned> generation = generationOf(file, why);
        ASSERT_TRUE(generation) << why;
        EXPECT_GE(*generation, progress->saved) << "what was answered was saved";
        EXPECT_LE(*generation, progress->begun);
    }

    // The provider itself reads the last file: on a machine without disks it publishes the disks of the file.
    void readBack()
    {
        const std::string file = machine.read(scenario::kStateFile);
        std::string why;
        const std::optional<unsigned> generation = generationOf(file, why);
        ASSERT_TRUE(generation) << why;
        const sim::Machine empty("{}");
        machine.write(scenario::kStateFile, file);
        Server server(scenario::inServiceMode());
        ASSERT_TRUE(server->getInstance("TAV_StorageThread").ok());
        std::vector<size_t> sizes;
        for (const process::Segment &segment : process::segmentsOf(::getpid())) {
            sizes.push_back(segment.bytes);
        }
        EXPECT_THAT(sizes, testing::Contains(scenario::disksOf(*generation) * sizeof(StrgScsiRec)));
        EXPECT_THAT(sizes, testing::Contains(scenario::disksOf(*generation) * sizeof(StrgHddRec)));
    }

    sim::Machine machine{machineOf(0)};
    const std::string data;
    scenario::Shared<Progress> progress;
    std::mt19937 random{20240607};
    int states = 0;
};

TEST_F(Kill, AtAnyMomentLeavesAWholeState)
{
    constexpr int kKills = 100;
    for (int i = 0; i < kKills && !HasFatalFailure(); ++i) {
        killOne({});
    }
    EXPECT_GT(states, kKills / 2);
    EXPECT_GT(progress->saved, 50U) << "there was something to kill";
    readBack();
}

TEST_F(Kill, AtAnyCallOfASaveLeavesAWholeState)
{
    const sim::Call kinds[] = {sim::Call::write, sim::Call::write, sim::Call::open, sim::Call::stat};
    for (unsigned i = 0; i < 100 && !HasFatalFailure(); ++i) {
        const sim::Call kind = kinds[i % 4];
        killOne({kind, 1 + static_cast<unsigned>(random()) % (kind == sim::Call::write ? 24 : 200)});
    }
    EXPECT_GT(states, 90);
    readBack();
}

// A monitored machine, stepped from pass to pass.
class Failure : public testing::Test {
protected:
    Failure() { EXPECT_TRUE(steps.start(*server)); }

    std::string saved() const { return machine.read(scenario::kStateFile); }

    unsigned generation = 40; // with many disks, so that its state is larger than a stream buffer
    scenario::Agent agent;
    sim::Machine machine{machineOf(generation, true)};
    scenario::Steps steps;
    Server server{scenario::inServiceMode()};
};

TEST_F(Failure, FailedWriteKeepsTheOldFile)
{
    int kept = 0;
    for (unsigned nth = 1; nth < 20; ++nth) {
        SCOPED_TRACE("write " + std::to_string(nth));
        const std::string before = saved();
        machine.change(machineOf(++generation, true));
        sim::failNth(sim::Call::write, nth);
        ASSERT_TRUE(steps.pass());
        const bool struck = sim::failureStruck();
        sim::failNth(sim::Call::write, 0);
        std::string why;
        if (struck && saved() == before) {
            ++kept;
            EXPECT_TRUE(agent.traced("_OUT_ strgPutBinFile() Failure!!"));
            EXPECT_TRUE(agent.traced("strgCheckConfigChange() Failure!!"));
            EXPECT_THAT(agent.alerts(), testing::IsEmpty());
            ASSERT_TRUE(steps.pass());
            EXPECT_THAT(agent.alerts(), testing::IsEmpty()) << "the segments had the change already";
        } else {
            EXPECT_THAT(agent.alerts(), testing::ElementsAre(scenario::kConfigurationChange));
        }
        EXPECT_EQ(generationOf(saved(), why), generation) << why;
        agent.forget();
        if (!struck) {
            break;
        }
    }
    EXPECT_EQ(kept, 4) << "writing, flushing, syncing, renaming";
}

TEST_F(Failure, FullDiskKeepsTheOldFile)
{
    const std::string before = saved();
    constexpr rlim_t kRoom = 1000; // bytes that still fit: a part of the state
    ASSERT_GT(before.size(), 4 * kRoom);
    generation += 12; // as many disks
    machine.change(machineOf(++generation, true));
    const auto onFull = std::signal(SIGXFSZ, SIG_IGN);
    struct rlimit all = {};
    ASSERT_EQ(::getrlimit(RLIMIT_FSIZE, &all), 0);
    const struct rlimit full = {kRoom, all.rlim_max};
    agent.forget();
    ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &full), 0);
    ASSERT_TRUE(steps.pass());
    ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &all), 0);
    std::signal(SIGXFSZ, onFull);
    EXPECT_EQ(saved(), before);
    EXPECT_FALSE(machine.exists(std::string(scenario::kStateFile) + ".tmp"));
    EXPECT_TRUE(agent.traced("_OUT_ strgPutBinFile() Failure!!"));
    EXPECT_THAT(agent.alerts(), testing::IsEmpty());

    ASSERT_TRUE(steps.pass());
    std::string why;
    EXPECT_EQ(generationOf(saved(), why), generation) << why;
}

TEST_F(Failure, FailedOpenIsTracedWithoutAlert)
{
    machine.remove(scenario::kStateFile);
    machine.makeDirectory(scenario::kStateFile);
    machine.change(machineOf(++generation, true));
    ASSERT_TRUE(steps.pass());
    EXPECT_TRUE(agent.traced("_OUT_ fopen Failure!! err=[21]"));
    EXPECT_THAT(agent.alerts(), testing::IsEmpty());
    std::string why;
    EXPECT_EQ(generationOf(server->enumInstances("TAV_StorageSCSIDevice"), why), generation) << why;
}

} // namespace

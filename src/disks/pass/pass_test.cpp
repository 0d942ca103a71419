// SPDX-License-Identifier: Apache-2.0
#include "disks/pass/pass.h"

#include "disks/find/find.h"
#include "runtime/side_by_side.h"
#include "sim/sim.h"
#include "support/machines.h"
#include "support/only_reads.h"

#include <chrono>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <scsi/sg.h>
#include <set>
#include <thread>

using namespace tavstrg::disks;
using nlohmann::json;

namespace {

std::string describe(const Disk &disk)
{
    return std::string(disk.name) + " " + nameOf(disk.health.state) + ": " + disk.health.reason;
}

// What a pass over a machine finds, disk by disk.
std::vector<std::string> passOver(const json &machine, const PassLimits &limits = {})
{
    const sim::Machine simulated(machine.dump());
    Array<Disk> disks;
    EXPECT_EQ(findDisks(disks), FindResult::done);
    Pass pass;
    EXPECT_TRUE(pass.run(disks, limits));
    std::vector<std::string> all;
    for (const Disk &disk : disks) {
        all.push_back(describe(disk));
    }
    return all;
}

json machineOf(const json &device)
{
    return {{"hosts", {{{"number", 0}, {"driver", "ahci"}, {"devices", {device}}}}}};
}

json ata(json fields = json::object())
{
    json device = {{"ata", true}, {"model", "NORDWIND NW1000"}, {"serial", "NW-1"}};
    device.update(fields);
    return device;
}

std::string outcomeOf(const json &device)
{
    const auto all = passOver(machineOf(device));
    return all.size() == 1 ? all[0] : std::to_string(all.size()) + " disks";
}

TEST(Pass, AtaDiskThatIsGoodFailingOrSwitchedOff)
{
    EXPECT_EQ(outcomeOf(ata()), "sda good: predicts no failure");
    EXPECT_EQ(outcomeOf(ata({{"smart", {{"failing", true}}}})),
              "sda failing: predicts its failure: a threshold is exceeded");
    EXPECT_EQ(outcomeOf(ata({{"smart", {{"enabled", false}}}})), "sda off: SMART is switched off in the disk");
    EXPECT_EQ(outcomeOf(ata({{"smart", {{"supported", false}}}})), "sda unknown: the disk has no SMART");
}

TEST(Pass, ScsiDiskThatIsGoodFailingOrSwitchedOff)
{
    EXPECT_EQ(outcomeOf({{"exceptions", {{"logPage", true}}}}), "sda good: predicts no failure");
    EXPECT_EQ(outcomeOf({{"exceptions", {{"logPage", true}, {"predicting", true}}}}).substr(0, 33),
              "sda failing: predicts its failure");
    EXPECT_EQ(outcomeOf({{"exceptions", {{"logPage", true}, {"dexcpt", true}}}}),
              "sda off: failure prediction is switched off");
    EXPECT_EQ(outcomeOf({{"exceptions", {{"supported", false}}}}), "sda unknown: the disk has no log of its health");
}

TEST(Pass, DisksThatCannotBeOpenedSayWhy)
{
    EXPECT_EQ(outcomeOf(ata({{"openError", "ENXIO"}})), "sda unreadable: does not answer: No such device or address");
    EXPECT_EQ(outcomeOf(ata({{"openError", "EACCES"}})), "sda unknown: not permitted to ask; root is");
    EXPECT_EQ(outcomeOf(ata({{"faults", {{{"on", "any"}, {"errno", "ENODEV"}}}}})),
              "sda unreadable: does not answer: No such device");
    EXPECT_EQ(outcomeOf(ata({{"faults", {{{"on", "any"}, {"errno", "EPERM"}}}}})),
              "sda unknown: not permitted to ask; root is");
}

TEST(Pass, SuspendedDiskIsNotEvenOpened)
{
    const sim::Machine machine(machineOf(ata({{"power", {{"runtimeStatus", "suspended"}}}})).dump());
    Array<Disk> disks;
    ASSERT_EQ(findDisks(disks), FindResult::done);
    Pass pass;
    ASSERT_TRUE(pass.run(disks));
    EXPECT_EQ(disks[0].health.state, HealthState::asleep);
    EXPECT_EQ(disks[0].readings.power, PowerState::suspended);
    EXPECT_FALSE(disks[0].lastAsked);
    EXPECT_TRUE(machine.openings().empty());
    EXPECT_TRUE(machine.commands().empty());
}

TEST(Pass, DiskInStandbyIsNotWokenAndIdleOnesAreAsked)
{
    for (const bool isAta : {true, false}) {
        for (const char *state : {"standby", "idle", "active"}) {
            json device = isAta ? ata() : json{{"exceptions", {{"logPage", true}}}};
            device["power"] = {{"state", state}};
            const sim::Machine machine(machineOf(device).dump());
            Array<Disk> disks;
            ASSERT_EQ(findDisks(disks), FindResult::done);
            Pass pass;
            ASSERT_TRUE(pass.run(disks));
            const bool sleeps = std::string(state) == "standby";
            EXPECT_EQ(disks[0].health.state, sleeps ? HealthState::asleep : HealthState::good) << describe(disks[0]);
            EXPECT_EQ(disks[0].lastAsked.known, !sleeps);
            EXPECT_EQ(machine.commands().size() == 1, sleeps) << "one command finds out";
            EXPECT_EQ(machine.power("/dev/sda").spinUps, 0U) << state;
        }
    }
}

TEST(Pass, RegistersOfAtaDisksInFixedFormat)
{
    EXPECT_EQ(outcomeOf(ata({{"ataStatus", "fixed"}})), "sda good: predicts no failure");
    EXPECT_EQ(outcomeOf(ata({{"ataStatus", "fixed"}, {"smart", {{"failing", true}}}})),
              "sda failing: predicts its failure: a threshold is exceeded");
    EXPECT_EQ(outcomeOf(ata({{"ataStatus", "fixed"}, {"power", {{"state", "standby"}}}})),
              "sda asleep: sleeps; it was not asked");
}

// A machine whose disks hang. Its end waits for the threads that are with them.
class Hanging : public testing::Test {
protected:
    ~Hanging() override
    {
        if (machine_) {
            for (const Disk &disk : disks_) {
                machine_->release(std::string("/dev/") + disk.name);
            }
        }
        while (tavstrg::joinReturned() != 0) {
            std::this_thread::yield();
        }
        EXPECT_EQ(pass_.setAside(), 0);
    }
    void load(const json &machine)
    {
        machine_ = std::make_unique<sim::Machine>(machine.dump());
        ASSERT_EQ(findDisks(disks_), FindResult::done);
    }
    void hold(const char *node) { machine_->hold(node); }
    // Three disks on each of two adapters: sda to sdc, sdd to sdf.
    void loadTwoAdapters()
    {
        json machine = {{"hosts", json::array()}};
        for (unsigned host = 0; host < 2; ++host) {
            json devices = json::array();
            for (unsigned id = 0; id < 3; ++id) {
                devices.push_back(ata({{"id", id}, {"serial", "NW-" + std::to_string(host * 3 + id)}}));
            }
            machine["hosts"].push_back({{"number", host}, {"driver", "ahci"}, {"devices", devices}});
        }
        load(machine);
        ASSERT_EQ(disks_.count(), 6);
    }

    std::unique_ptr<sim::Machine> machine_;
    Array<Disk> disks_;
    Pass pass_;
};

TEST_F(Hanging, OneDiskThatHangsDelaysNoOther)
{
    loadTwoAdapters();
    hold("/dev/sdb");
    ASSERT_TRUE(pass_.run(disks_, {.deadlineMs = 300}));
    for (const Disk &disk : disks_) {
        EXPECT_EQ(disk.health.state, disk.name[2] == 'b' ? HealthState::unreadable : HealthState::good)
            << describe(disk);
    }
    EXPECT_EQ(pass_.setAside(), 1);
    Pass another; // what is away is known to the process
    ASSERT_TRUE(another.run(disks_));
    EXPECT_EQ(describe(disks_[1]), "sdb unreadable: its last command has not returned");
    EXPECT_EQ(disks_[0].health.state, HealthState::good);
}

TEST_F(Hanging, DiskIsAskedAgainOnceItsCommandHasReturned)
{
    load(machineOf(ata()));
    hold("/dev/sda");
    ASSERT_TRUE(pass_.run(disks_, {.deadlineMs = 50}));
    EXPECT_EQ(disks_[0].health.state, HealthState::unreadable);
    const size_t before = machine_->commands().size();
    machine_->release("/dev/sda");
    while (pass_.setAside() != 0) {
        std::this_thread::yield();
    }
    EXPECT_LE(machine_->commands().size(), before + 1) << "no further command was sent when it answered after all";
    ASSERT_TRUE(pass_.run(disks_));
    EXPECT_EQ(disks_[0].health.state, HealthState::good);
}

TEST_F(Hanging, NamespacesOfAControllerThatHangsWaitForItOnce)
{
    const json spaces = {{{"nsid", 1}, {"eui", "0025385b71b00001"}}, {{"nsid", 2}, {"eui", "0025385b71b00002"}}};
    load({{"nvme", {{{"model", "POLAR P4"}, {"serial", "P4-1"}, {"namespaces", spaces}}}}});
    ASSERT_EQ(disks_.count(), 2);
    machine_->hold("/dev/nvme0");
    ASSERT_TRUE(pass_.run(disks_, {.deadlineMs = 100}));
    EXPECT_EQ(disks_[0].health.state, HealthState::unreadable) << describe(disks_[0]);
    EXPECT_EQ(disks_[1].health.state, HealthState::unreadable) << describe(disks_[1]);
    EXPECT_EQ(pass_.setAside(), 1);
    machine_->release("/dev/nvme0");
}

TEST_F(Hanging, PassOfLimitedTimeLeavesWhatWaits)
{
    loadTwoAdapters();
    hold("/dev/sdb");
    ASSERT_TRUE(pass_.run(disks_, {.deadlineMs = 60000, .wholeMs = 300}));
    EXPECT_EQ(disks_[0].health.state, HealthState::good);
    EXPECT_EQ(disks_[1].health.state, HealthState::unreadable) << describe(disks_[1]);
    EXPECT_EQ(describe(disks_[2]), "sdc unknown: was not asked: other disks of its adapter took all the time");
    EXPECT_EQ(disks_[5].health.state, HealthState::good);
    EXPECT_EQ(pass_.setAside(), 1);
}

TEST_F(Hanging, DiskThatAnswersIsNotSaidToHangWhenThePassEnds)
{
    load(machineOf(ata({{"delayMs", 200}})));
    ASSERT_TRUE(pass_.run(disks_, {.wholeMs = 100}));
    EXPECT_EQ(describe(disks_[0]), "sda unknown: was not asked to the end: the pass had taken all its time");
    EXPECT_EQ(pass_.setAside(), 0);
}

TEST_F(Hanging, NodeThatOpensAfterItsDiskWasSetAsideGetsNoCommand)
{
    load({{"nvme", {{{"model", "POLAR P4"}, {"serial", "P4-1"}, {"namespaces", {{{"nsid", 1}}}}}}}});
    hold("/dev/nvme0");
    ASSERT_TRUE(pass_.run(disks_, {.deadlineMs = 50}));
    EXPECT_EQ(disks_[0].health.state, HealthState::unreadable);
    machine_->release("/dev/nvme0");
    while (tavstrg::joinReturned() != 0) {
        std::this_thread::yield();
    }
    EXPECT_TRUE(machine_->commands().empty());
}

TEST_F(Hanging, PassCanBeStopped)
{
    loadTwoAdapters();
    hold("/dev/sdb");
    std::atomic<bool> stop = false;
    std::thread stopper([&] {
        machine_->awaitWaiting("/dev/sdb", 1, 60);
        stop = true;
    });
    EXPECT_FALSE(pass_.run(disks_, {.deadlineMs = 60000, .stop = &stop}));
    stopper.join();
    EXPECT_EQ(pass_.setAside(), 1);
}

TEST(Pass, AnEmptyListIsFine)
{
    Array<Disk> disks;
    Pass pass;
    EXPECT_TRUE(pass.run(disks));
}

// ---- what never happens, over all example machines ----

class EveryExample : public testing::TestWithParam<std::string> {};

TEST_P(EveryExample, IsOnlyRead)
{
    const sim::Machine machine(only_reads::exampleMachine(GetParam()));
    Array<Disk> disks;
    ASSERT_NE(findDisks(disks), FindResult::noMemory); // not every machine has /sys/block
    EXPECT_TRUE(machine.commands().empty()) << "finding the disks sends nothing";
    std::vector<std::string> nodes;
    for (const Disk &disk : disks) {
        nodes.push_back(std::string("/dev/") + disk.name);
    }
    const only_reads::Watch watch(machine, nodes);
    Pass pass;
    ASSERT_TRUE(pass.run(disks));
    watch.check();
}

INSTANTIATE_TEST_SUITE_P(Examples, EveryExample, testing::ValuesIn(only_reads::kExamples));

} // namespace

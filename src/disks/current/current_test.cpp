// SPDX-License-Identifier: Apache-2.0
#include "disks/current/current.h"

#include "runtime/side_by_side.h"
#include "sim/sim.h"
#include "support/held_call.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <atomic>
#include <ctime>
#include <memory>
#include <thread>
#include <vector>

using namespace tavstrg::disks;
using nlohmann::json;

namespace {

constexpr const char *kBook = "/opt/qlm/tavkit_sa/data/tavstrgbook.dat";
constexpr CurrentLimits kAtOnce = {.freshMs = 0};

json disk(unsigned id, json fields = json::object())
{
    json device = {{"id", id}, {"ata", true}, {"model", "NORDWIND"}, {"serial", "NW-" + std::to_string(id)}};
    device.update(fields);
    return device;
}

std::string machineWithBook(const json &devices)
{
    return json{{"hosts", {{{"number", 0}, {"driver", "ahci"}, {"devices", devices}}}}}.dump();
}

class Current : public testing::Test {
protected:
    explicit Current(const json &devices = {disk(0), disk(1)})
        : machine(std::make_unique<sim::Machine>(machineWithBook(devices)))
    {
        machine->makeDirectory("/opt/qlm/tavkit_sa/data");
        sim::countCallsOf("");
    }
    ~Current() override
    {
        sim::countCallsOf("libTAVStorageProvider.so");
        machine->release("/dev/sda");
        forgetCurrentDisks();
        while (tavstrg::joinReturned() != 0) {
            std::this_thread::yield();
        }
        EXPECT_EQ(machine->openDescriptors(), 0);
    }

    std::unique_ptr<sim::Machine> machine;
};

TEST_F(Current, DisksAreAskedAgainOnlyWhenTheyAreNotFresh)
{
    {
        const CurrentDisks first;
        EXPECT_EQ(first.state(), CurrentState::done);
        ASSERT_EQ(first.disks().count(), 2);
        EXPECT_EQ(first.disks()[1].health.state, HealthState::good);
    }
    const size_t asked = machine->commands().size();
    EXPECT_GT(asked, 0U);
    const CurrentDisks fresh;
    EXPECT_EQ(machine->commands().size(), asked);
    EXPECT_EQ(fresh.disks().count(), 2);
    const CurrentDisks again(kAtOnce);
    EXPECT_EQ(machine->commands().size(), 2 * asked);
}

TEST_F(Current, DisksStayAsTheyAreForTheOneWhoHasThem)
{
    const CurrentDisks before;
    machine->change(machineWithBook(json::array({disk(0)})));
    const CurrentDisks after(kAtOnce);
    EXPECT_EQ(before.disks().count(), 2);
    EXPECT_STREQ(before.disks()[1].serial, "NW-1");
    EXPECT_EQ(after.disks().count(), 1);
}

TEST_F(Current, AllWhoAskAtTheSameTimeShareOnePass)
{
    machine->hold("/dev/sda");
    std::vector<std::thread> askers;
    std::atomic<int> done = 0;
    for (int i = 0; i < 4; ++i) {
        askers.emplace_back([&] {
            const CurrentDisks current;
            done += current.disks().count() == 2 ? 1 : 0;
        });
    }
    ASSERT_TRUE(machine->awaitWaiting("/dev/sda", 1, 60));
    machine->release("/dev/sda");
    for (std::thread &asker : askers) {
        asker.join();
    }
    EXPECT_EQ(done, 4);
    const size_t asked = machine->commands().size();
    const CurrentDisks alone(kAtOnce);
    EXPECT_EQ(machine->commands().size(), 2 * asked);
}

TEST_F(Current, DiskThatHangsDelaysByItsDeadlineOnceOnly)
{
    machine->hold("/dev/sda");
    CurrentLimits limits = kAtOnce;
    limits.pass.deadlineMs = 200;
    const CurrentDisks first(limits);
    ASSERT_EQ(first.disks().count(), 2);
    EXPECT_EQ(first.disks()[0].health.state, HealthState::unreadable);
    EXPECT_EQ(first.disks()[1].health.state, HealthState::good);
    const CurrentDisks second(kAtOnce); // with the full deadline
    EXPECT_STREQ(second.disks()[0].health.reason, "its last command has not returned");
    EXPECT_EQ(second.disks()[0].health.since.value, first.disks()[0].health.since.value);
}

TEST_F(Current, ForgettingStopsAPass)
{
    machine->hold("/dev/sda");
    std::thread asker([] {
        const CurrentDisks current;
        EXPECT_EQ(current.state(), CurrentState::stopped);
        EXPECT_TRUE(current.disks().empty());
    });
    ASSERT_TRUE(machine->awaitWaiting("/dev/sda", 1, 60));
    forgetCurrentDisks(); // waits for its end, so
    const CurrentDisks later;
    EXPECT_EQ(later.state(), CurrentState::done) << "a later request begins again";
    asker.join();
}

TEST_F(Current, ForgettingLeavesDisksToTheOneWhoHasThem)
{
    const CurrentDisks current;
    const size_t asked = machine->commands().size();
    forgetCurrentDisks();
    EXPECT_EQ(current.disks().count(), 2);
    const CurrentDisks next;
    EXPECT_EQ(machine->commands().size(), 2 * asked);
}

TEST_F(Current, BookSurvivesTheProcessAndIsWrittenWhenSomethingChanged)
{
    int64_t since = 0;
    {
        const CurrentDisks current;
        since = current.disks()[0].health.since.value;
        EXPECT_GT(since, 0);
        EXPECT_EQ(current.disks()[0].firstSeen.value, since);
    }
    const std::string book = machine->read(kBook);
    EXPECT_THAT(book, testing::HasSubstr("NW-1"));
    machine->remove(kBook);
    while (std::time(nullptr) == since) {
        std::this_thread::yield();
    }
    {
        const CurrentDisks current(kAtOnce);
        EXPECT_FALSE(machine->exists(kBook)) << "nothing happened";
    }
    machine->write(kBook, book);
    forgetCurrentDisks();
    machine->change(machineWithBook({disk(0, {{"smart", {{"failing", true}}}}), disk(1)}));
    const CurrentDisks current;
    EXPECT_EQ(current.disks()[0].firstSeen.value, since);
    EXPECT_GT(current.disks()[0].health.since.value, since);
    EXPECT_EQ(current.disks()[1].health.since.value, since);
    EXPECT_NE(machine->read(kBook), book);
}

TEST_F(Current, BookThatCannotBeReadIsLeftAloneAndReadByTheNextPass)
{
    sim::resetCounts();
    int64_t firstSeen = 0;
    {
        const CurrentDisks current;
        firstSeen = current.disks()[0].firstSeen.value;
    }
    const unsigned readsBeforeTheBook = sim::callsMade(sim::Call::read);
    const std::string book = machine->read(kBook);
    forgetCurrentDisks();
    while (std::time(nullptr) == firstSeen) {
        std::this_thread::yield();
    }
    sim::failNth(sim::Call::read, readsBeforeTheBook + 1);
    {
        const CurrentDisks current(kAtOnce);
        EXPECT_TRUE(sim::failureStruck());
        EXPECT_EQ(current.state(), CurrentState::done);
        EXPECT_GT(current.disks()[0].firstSeen.value, firstSeen) << "the book could be read";
    }
    EXPECT_EQ(machine->read(kBook), book);
    const CurrentDisks current(kAtOnce);
    EXPECT_EQ(current.disks()[0].firstSeen.value, firstSeen);
}

TEST_F(Current, DiskThatFallsAsleepIsNotWrittenDown)
{
    {
        const CurrentDisks current;
    }
    machine->remove(kBook); // would be there again
    machine->change(machineWithBook({disk(0, {{"power", {{"state", "standby"}}}}), disk(1)}));
    for (const HealthState state : {HealthState::asleep, HealthState::good}) {
        const CurrentDisks current(kAtOnce);
        EXPECT_EQ(current.disks()[0].health.state, state);
        machine->change(machineWithBook({disk(0), disk(1)}));
    }
    EXPECT_FALSE(machine->exists(kBook)) << "the write would wake the disk";
}

// An older kernel knows 16 characters of a model and the disk 40.
TEST_F(Current, DiskKeepsItsIdWhileItSleeps)
{
    const json fields = {{"model", "NORDWIND NW1000 ENTERPRISE SERIES 2"}, {"vpdPages", {{"89", nullptr}}}};
    machine->change(machineWithBook(json::array({disk(0, fields)})));
    const CurrentDisks awake(kAtOnce);
    ASSERT_EQ(awake.disks().count(), 1);
    EXPECT_STREQ(awake.disks()[0].model, "NORDWIND NW1000 ENTERPRISE SERIES 2");
    json sleeping = fields;
    sleeping["power"] = {{"state", "standby"}};
    machine->change(machineWithBook(json::array({disk(0, sleeping)})));
    const CurrentDisks asleep(kAtOnce);
    ASSERT_EQ(asleep.disks().count(), 1);
    EXPECT_EQ(asleep.disks()[0].health.state, HealthState::asleep);
    EXPECT_STREQ(asleep.disks()[0].id, awake.disks()[0].id);
    EXPECT_EQ(asleep.disks()[0].lastAsked.value, awake.disks()[0].lastAsked.value) << "by its entry in the book";
}

TEST_F(Current, PassThatHangsDelaysNoOtherRequestForEver)
{
    HeldCall listing(sim::Call::list);
    std::thread asker([] {
        const CurrentDisks current;
        EXPECT_EQ(current.state(), CurrentState::stopped);
    });
    listing.await();
    {
        const CurrentDisks other({.waitMs = 20});
        EXPECT_EQ(other.state(), CurrentState::busy);
        EXPECT_TRUE(other.disks().empty());
    }
    EXPECT_FALSE(forgetCurrentDisks(20));
    listing.release();
    asker.join(); // what was to be stopped is stopped when it comes back
    const CurrentDisks later;
    EXPECT_EQ(later.state(), CurrentState::done);
}

TEST_F(Current, WhatWasFoundIsThereBeforeItIsSaved)
{
    HeldCall saving(sim::Call::write);
    std::thread asker([] {
        const CurrentDisks current;
        EXPECT_EQ(current.state(), CurrentState::done);
    });
    saving.await();
    {
        const CurrentDisks other;
        EXPECT_EQ(other.state(), CurrentState::done);
        EXPECT_EQ(other.disks().count(), 2);
    }
    EXPECT_FALSE(forgetCurrentDisks(20));
    saving.release();
    asker.join();
    EXPECT_TRUE(forgetCurrentDisks());
}

class CurrentWithoutSysfs : public testing::Test {};

TEST_F(CurrentWithoutSysfs, IsNotReadable)
{
    const sim::Machine machine(R"({"kernel": "2.4.20"})");
    {
        const CurrentDisks current;
        EXPECT_EQ(current.state(), CurrentState::notReadable);
        EXPECT_TRUE(current.disks().empty());
    }
    forgetCurrentDisks();
}

} // namespace

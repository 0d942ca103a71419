// SPDX-License-Identifier: Apache-2.0
// Many clients beside the starts and stops of the monitoring thread and beside cleanups, on a machine whose disks are
// plugged and unplugged. Every answer is a state that the machine had, and none is older than permitted.
//
// Runs for TAV_STRESS_SECONDS, by default longer under a sanitizer.
#include "scenarios/generations.h"
#include "scenarios/monitored.h"

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <mutex>
#include <random>
#include <shared_mutex>
#include <thread>

namespace {

using broker::Reply;
using broker::Value;
using scenario::generationOf;
using scenario::machineOf;
using scenario::Server;
using Clock = std::chrono::steady_clock;

constexpr unsigned kClients = 8;
constexpr unsigned kShorter = 10; // waits for a lock: 10 ms, so that more happens in the time
constexpr double kDeadAfter = 60; // seconds without an answer

double stressSeconds()
{
    const char *const told = std::getenv("TAV_STRESS_SECONDS");
    constexpr double kShort = 5;
    constexpr double kLong = 30;
    return told != nullptr ? std::atof(told) : sim::allocationsCanFail() ? kShort : kLong;
}

// Generations that an answer may have: the one published at the request, or a later one.
struct Span {
    unsigned oldest, newest;
};

// Separates requests from changes of the machine.
class Change {
public:
    std::shared_lock<std::shared_mutex> keepOff()
    {
        while (wanted_) { // requests must not starve the change
            std::this_thread::yield();
        }
        return std::shared_lock(guard_);
    }
    std::unique_lock<std::shared_mutex> begin()
    {
        wanted_ = true;
        std::unique_lock held(guard_);
        wanted_ = false;
        return held;
    }

private:
    std::shared_mutex guard_;
    std::atomic<bool> wanted_ = false;
};

class Stress : public testing::Test {
protected:
    Stress() { sim::shortenSleeps(kShorter); }
    ~Stress() override { sim::shortenSleeps(1); }

    // Repeats work in a new thread until the time is over.
    template <class Work> void repeat(Work work)
    {
        threads.emplace_back([this, work]() mutable {
            while (!over && !testing::Test::HasFailure()) {
                work();
                ++rounds;
            }
        });
    }

    // Waits for the end. A deadlock ends the process, so that the test fails.
    void runOn()
    {
        const auto end = Clock::now() + std::chrono::duration<double>(stressSeconds());
        while (Clock::now() < end && !testing::Test::HasFailure()) {
            const unsigned before = rounds;
            if (!scenario::await([&] { return rounds != before; }, kDeadAfter)) {
                ADD_FAILURE() << "nothing moves any more";
                std::abort();
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
        }
        over = true;
        const unsigned all = static_cast<unsigned>(threads.size());
        std::thread watchdog([&] {
            if (!scenario::await([&] { return ended == all; }, kDeadAfter)) {
                std::abort();
            }
        });
        for (std::thread &thread : threads) {
            thread.join();
            ++ended;
        }
        watchdog.join();
        RecordProperty("answers", static_cast<int>(answers));
        RecordProperty("refusals", static_cast<int>(refusals));
        RecordProperty("generations", static_cast<int>(generation));
        EXPECT_GT(answers, 100U);
        EXPECT_GT(generation, 10U);
    }

    // An answer with disks, or a specified refusal.
    void check(const Reply &reply, const Span &span, const char *what)
    {
        if (!reply.ok()) {
            ++refusals;
            EXPECT_EQ(reply.rc, 1) << what << ": " << reply.message;
            EXPECT_THAT(reply.message, testing::AnyOf("ServiceMode But NonThread Failure!!", "strgGetInstance() FAILED",
                                                      "strgInitProvider() Failure!!"))
                << what;
            return;
        }
        ++answers;
        std::string why;
        const std::optional<unsigned> seen = generationOf(reply, why);
        ASSERT_TRUE(seen) << what << ": " << why;
        EXPECT_GE(*seen, span.oldest) << what;
        EXPECT_LE(*seen, span.newest) << what;
    }

    // Sends requests of all kinds, one after the other.
    template <class Before, class After> void ask(unsigned turn, Before before, After after)
    {
        const unsigned oldest = before();
        Reply reply;
        switch (turn % 4) {
        case 0:
            reply = (*server)->enumInstances("TAV_StorageSCSIDevice");
            return check(reply, {oldest, after()}, "SCSI devices");
        case 1:
            reply = (*server)->enumInstances("TAV_StorageHardDisk");
            return check(reply, {oldest, after()}, "hard disks");
        case 2:
            reply = (*server)->getInstance("TAV_StorageSCSIDevice", {{"Index", Value::text("1")}});
            return checkFirst(reply, {oldest, after()});
        default:
            return checkTotals((*server)->enumInstances("TAV_StorageTotalNumber"));
        }
    }

    void checkFirst(const Reply &reply, const Span &span)
    {
        if (!reply.ok()) {
            return check(reply, span, "first device");
        }
        ++answers;
        ASSERT_EQ(reply.instances.size(), 1U);
        const std::string model = reply.instances[0].find("Model")->toString();
        const auto seen = static_cast<unsigned>(std::stoul(model.substr(4)));
        EXPECT_GE(seen, span.oldest);
        EXPECT_LE(seen, span.newest);
        const std::string serial = reply.instances[0].find("SerialNumber")->toString();
        EXPECT_EQ(serial, model.substr(4) + "-0");
    }

    void checkTotals(const Reply &reply)
    {
        if (!reply.ok()) {
            return check(reply, {}, "totals");
        }
        ++answers;
        ASSERT_EQ(reply.instances.size(), 1U);
        const auto total = [&](const char *name) { return std::stoul(reply.instances[0].find(name)->toString()); };
        const unsigned long disks = total("HardDiskTotalNumber");
        EXPECT_GE(disks, 1U);
        EXPECT_EQ(total("SCSIDeviceTotalNumber"), disks);
        EXPECT_EQ(total("ControllerTotalNumber"), (disks + 7) / 8) << "one for every eight";
    }

    sim::Machine machine{machineOf(1)};
    std::optional<Server> server;
    std::vector<std::thread> threads;
    std::atomic<bool> over = false;
    std::atomic<unsigned> generation = 1; // of the machine
    std::atomic<unsigned> rounds = 0;
    std::atomic<unsigned> answers = 0;
    std::atomic<unsigned> refusals = 0;
    std::atomic<unsigned> ended = 0;
};

TEST_F(Stress, ServiceModeAnswersWithStatesOfTheMachine)
{
    scenario::Steps steps;
    server.emplace(scenario::inServiceMode());
    ASSERT_TRUE(steps.start(**server));
    std::atomic<unsigned> published = 1;
    // The machine changes only while the thread sleeps, no thread is started and no request runs: a request during a
    // stop collects itself. So each collection sees one state.
    std::mutex starting;
    Change change;
    for (unsigned client = 0; client < kClients; ++client) {
        repeat([&, turn = client]() mutable {
            const std::shared_lock held = change.keepOff();
            ask(
                turn++, [&] { return published.load(); }, [&] { return generation.load(); });
        });
    }
    repeat([&] { // disks are plugged and unplugged
        unsigned passes = 0;
        {
            const std::lock_guard nobodyStarts(starting);
            const std::unique_lock held = change.begin();
            if (sim::sleepers() == 0) {
                std::this_thread::sleep_for(std::chrono::milliseconds(1));
                return;
            }
            passes = sim::sleepsBegun();
            machine.change(machineOf(++generation));
            sim::wakeSleepers();
        }
        while (!sim::awaitSleep(passes + 1, 0.1) && !over) {
        }
        // A pass that did not get a lock in time has failed and left the state unchanged.
        std::string why;
        if (generationOf(machine.read(scenario::kStateFile), why) == generation.load()) {
            published = generation.load();
        }
    });
    repeat([&, random = std::mt19937(7)]() mutable { // the thread is stopped and started again
        // As long as one to a few passes take.
        std::this_thread::sleep_for(std::chrono::microseconds(random() % (sim::allocationsCanFail() ? 40000 : 800000)));
        // Neither is refused, but each may wait for an initialisation.
        EXPECT_TRUE(scenario::await([&] { return scenario::stopThread(**server) == 0; }));
        std::this_thread::sleep_for(std::chrono::microseconds(random() % 3000));
        const std::lock_guard nobodyChanges(starting);
        EXPECT_TRUE(scenario::await([&] { return scenario::startThread(**server) == 0; }));
    });
    repeat([&, cycle = 10]() mutable { // the configuration is changed and saved
        std::this_thread::sleep_for(std::chrono::milliseconds(3));
        cycle = 10 + cycle % 3000;
        const Reply reply = (*server)->invokeMethod("TAV_StorageConfig", "SetMonitorCycle",
                                                    {{"MonitorCycle", Value::text(std::to_string(cycle))}});
        EXPECT_THAT(reply.rc, testing::AnyOf(0, 1)) << reply.message;
    });
    runOn();
    EXPECT_GT(published, 10U) << "passes do not fail in general";
    (*server)->stop();
    scenario::expectNothingLeft(**server);
}

TEST_F(Stress, AnswersWithTheCurrentStateOfTheMachine)
{
    server.emplace();
    Change change; // the machine does not change during requests
    for (unsigned client = 0; client < kClients; ++client) {
        repeat([&, turn = client]() mutable {
            const std::shared_lock held = change.keepOff();
            const auto now = [&] { return generation.load(); };
            ask(turn++, now, now);
        });
    }
    repeat([&] { // disks are plugged and unplugged
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
        const std::unique_lock held = change.begin();
        machine.change(machineOf(++generation));
    });
    repeat([&] { // the broker asks whether the provider can go, and stops it
        std::this_thread::sleep_for(std::chrono::milliseconds(30));
        const bool terminating = rounds % 2 == 0;
        EXPECT_THAT((*server)->cleanupInstance(terminating).rc, testing::AnyOf(0, 1));
        EXPECT_THAT((*server)->cleanupMethod(terminating).rc, testing::AnyOf(0, 1));
    });
    runOn();
    (*server)->stop();
    scenario::expectNothingLeft(**server);
}

} // namespace

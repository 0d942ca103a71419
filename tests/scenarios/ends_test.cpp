// SPDX-License-Identifier: Apache-2.0
// Long cleanups that are entered again, and requests after every kind of end.
#include "scenarios/generations.h"
#include "scenarios/monitored.h"

#include <atomic>
#include <chrono>
#include <functional>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <ostream>
#include <thread>

namespace {

using scenario::expectGeneration;
using scenario::machineOf;
using scenario::Server;
using scenario::startThread;
using scenario::stopThread;

broker::Options optionsFor(bool service)
{
    broker::Options options;
    options.serviceMode = service;
    return options;
}

// Works in either mode: in service mode the thread is started first.
void expectWorks(broker::Broker &broker, bool service, scenario::Steps &steps, unsigned generation)
{
    if (service && !scenario::threadRuns(broker)) {
        ASSERT_TRUE(steps.start(broker));
    }
    expectGeneration(broker, generation);
}

// ---- cleanups that take long ----

class LongCleanup : public testing::TestWithParam<bool> {};

// As the broker does: a cleanup that takes long is entered again repeatedly.
TEST_P(LongCleanup, EnteredAgainFreesOnceAndReturns)
{
    const bool service = GetParam();
    constexpr int kEntries = 5;
    sim::Machine machine(machineOf(3));
    scenario::Steps steps;
    Server server(optionsFor(service));
    server->getInstance("TAV_StorageThread");
    expectWorks(*server, service, steps, 3);

    std::atomic<int> entered = 0;
    std::atomic<int> returned = 0;
    std::atomic<bool> isLong = false;
    const auto enter = [&](int number) {
        ++entered;
        const broker::Reply reply = number % 2 == 0 ? server->cleanupInstance(true) : server->cleanupMethod(true);
        EXPECT_EQ(reply.rc, 0) << reply.message;
        ++returned;
    };
    std::vector<std::thread> threads;
    machine.remove("/opt/qlm/tavkit_sa/data/tavstrgsave.dat"); // an equal one would not be written again
    // The save within the first cleanup lasts until the others have entered, and as long as they need to continue.
    sim::atNth(sim::Call::write, 2, [&] {
        for (int i = 1; i < kEntries; ++i) {
            threads.emplace_back(enter, i);
        }
        while (entered < kEntries) {
            std::this_thread::yield();
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(300));
        EXPECT_EQ(returned, 0) << "nobody may say it is done before it is";
        isLong = true;
    });
    enter(0);
    for (std::thread &thread : threads) {
        thread.join();
    }
    EXPECT_TRUE(isLong);
    EXPECT_EQ(returned, kEntries);
    scenario::expectNothingLeft(*server);

    machine.change(machineOf(4));
    server->getInstance("TAV_StorageThread");
    expectWorks(*server, service, steps, 4);
    server->stop();
    scenario::expectNothingLeft(*server);
}

INSTANTIATE_TEST_SUITE_P(Modes, LongCleanup, testing::Bool(),
                         [](const auto &testInfo) { return testInfo.param ? "Service" : "NonService"; });

// ---- a start that meets a cleanup ----

// In either order: afterwards there is one thread, which a stop ends, or none.
TEST(StartAndCleanup, AtOnceLeaveNoThreadOrOneThatStops)
{
    sim::Machine machine(machineOf(2));
    Server server(optionsFor(true));
    unsigned started = 0;
    for (unsigned round = 0; round < 60; ++round) {
        std::thread starter([&] { scenario::startThread(*server); });
        std::this_thread::sleep_for(std::chrono::microseconds(round * 20));
        EXPECT_EQ(server->cleanupInstance(true).rc, 0);
        EXPECT_EQ(server->cleanupMethod(true).rc, 0);
        starter.join();
        if (scenario::threadRuns(*server)) {
            ++started;
            EXPECT_EQ(scenario::stopThread(*server), 0);
        } else if (scenario::startThread(*server) == 0) {
            EXPECT_EQ(scenario::stopThread(*server), 0);
        }
    }
    EXPECT_LT(started, 60U) << "the cleanup never came second";
    server->stop();
    scenario::expectNothingLeft(*server);
}

// ---- requests after an end ----

enum class Modes { service, both };

struct End {
    const char *name;
    Modes modes; // outside service mode every stop is refused
    std::function<void(sim::Machine &, broker::Broker &)> come;
};

void PrintTo(const End &end, std::ostream *out)
{
    *out << end.name;
}

// A first build that fails: no segment can be created.
void failToInitialise(sim::Machine &machine, broker::Broker &broker)
{
    broker.cleanupInstance(true);
    machine.remove(scenario::kWork);
    const broker::Reply reply = broker.getInstance("TAV_StorageThread");
    EXPECT_EQ(reply.message, "strgInitProvider() Failure!!");
    machine.makeDirectory(scenario::kWork);
}

const End kEnds[] = {
    {"Stop", Modes::service, [](sim::Machine &, broker::Broker &broker) { EXPECT_EQ(stopThread(broker), 0); }},
    {"StopThatCannotSave", Modes::service,
     [](sim::Machine &machine, broker::Broker &broker) {
         machine.remove(scenario::kStateFile);
         machine.makeDirectory(scenario::kStateFile);
         EXPECT_EQ(stopThread(broker), 0);
         machine.remove(scenario::kStateFile);
     }},
    {"RefusedStopAndOneThatIsNot", Modes::service,
     [](sim::Machine &, broker::Broker &broker) {
         EXPECT_EQ(stopThread(broker), 0);
         EXPECT_EQ(stopThread(broker), 1); // the store is freed and not rebuilt
         EXPECT_EQ(startThread(broker), 0);
         EXPECT_EQ(stopThread(broker), 0);
     }},
    {"StopAndCleanupWhenIdle", Modes::service,
     [](sim::Machine &, broker::Broker &broker) {
         EXPECT_EQ(stopThread(broker), 0);
         EXPECT_TRUE(broker.idle());
     }},
    {"RefusedStopAndUnload", Modes::both,
     [](sim::Machine &, broker::Broker &broker) {
         stopThread(broker);
         EXPECT_EQ(stopThread(broker), 1);
         broker.unload();
         EXPECT_EQ(broker.load(scenario::providerFile()), "");
     }},
    {"CleanupAtExit", Modes::both,
     [](sim::Machine &, broker::Broker &broker) {
         EXPECT_EQ(broker.cleanupInstance(true).rc, 0);
         EXPECT_EQ(broker.cleanupMethod(true).rc, 0);
     }},
    {"CleanupWhenIdle", Modes::both, [](sim::Machine &, broker::Broker &broker) { broker.idle(); }},
    {"FailedInitialisation", Modes::both, failToInitialise},
};

class AfterTheEnd : public testing::TestWithParam<std::tuple<End, bool>> {};

TEST_P(AfterTheEnd, TheNextRequestsWork)
{
    const auto &[end, service] = GetParam();
    sim::Machine machine(machineOf(1));
    scenario::Steps steps;
    Server server(optionsFor(service));
    for (unsigned round = 0; round < 3; ++round) {
        SCOPED_TRACE("round " + std::to_string(round));
        expectWorks(*server, service, steps, 1 + round);
        end.come(machine, *server);
        machine.change(machineOf(2 + round));
        if (service && scenario::threadRuns(*server)) { // this end leaves the thread running
            ASSERT_TRUE(steps.pass());
        }
    }
    expectWorks(*server, service, steps, 4);
    server->stop();
    scenario::expectNothingLeft(*server);
}

std::vector<std::tuple<End, bool>> endsInModes()
{
    std::vector<std::tuple<End, bool>> all;
    for (const End &end : kEnds) {
        all.emplace_back(end, true);
        if (end.modes == Modes::both) {
            all.emplace_back(end, false);
        }
    }
    return all;
}

INSTANTIATE_TEST_SUITE_P(Ends, AfterTheEnd, testing::ValuesIn(endsInModes()), [](const auto &testInfo) {
    return std::string(std::get<0>(testInfo.param).name) + (std::get<1>(testInfo.param) ? "Service" : "NonService");
});

} // namespace

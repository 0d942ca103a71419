// SPDX-License-Identifier: Apache-2.0
// Alerts after each kind of restart: none if the machine is the same, one for the change if it is not.
#include "scenarios/generations.h"
#include "scenarios/restarts.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <memory>
#include <ostream>

namespace {

using scenario::kConfigurationChange;
using scenario::machineOf;
using scenario::Restart;
using scenario::Server;
using testing::ElementsAre;
using testing::IsEmpty;

const Restart kRestarts[] = {
    scenario::kRestartOfTheThread,
    {"OfTheProvider",
     [](std::unique_ptr<Server> &server) {
         EXPECT_EQ((*server)->cleanupInstance(true).rc, 0);
         EXPECT_EQ((*server)->cleanupMethod(true).rc, 0);
     }},
    scenario::kRestartOfTheBroker,
};

class Restarted : public testing::TestWithParam<Restart> {
protected:
    void restart() { GetParam().happen(server); }

    scenario::Agent agent;
    sim::Machine machine{machineOf(1, true)};
    scenario::Steps steps;
    std::unique_ptr<Server> server = std::make_unique<Server>(scenario::inServiceMode());
};

TEST_P(Restarted, WithTheSameHardwareGivesNoAlert)
{
    for (int round = 0; round < 3; ++round) {
        ASSERT_TRUE(steps.start(**server));
        ASSERT_TRUE(steps.pass());
        EXPECT_THAT(agent.alerts(), IsEmpty()) << "round " << round;
        restart();
    }
}

TEST_P(Restarted, ChangeIsReportedOnceOnTheFirstPass)
{
    ASSERT_TRUE(steps.start(**server));
    for (unsigned generation = 2; generation < 5; ++generation) {
        restart();
        machine.change(machineOf(generation, true));
        ASSERT_TRUE(steps.start(**server));
        EXPECT_THAT(agent.alerts(), ElementsAre(kConfigurationChange)) << "generation " << generation;
        ASSERT_TRUE(steps.pass());
        EXPECT_THAT(agent.alerts(), ElementsAre(kConfigurationChange)) << "and not again";
        agent.forget();
    }
}

TEST_P(Restarted, ReplacedDiskOfTheSameCountGivesNoAlert)
{
    ASSERT_EQ(scenario::disksOf(1), scenario::disksOf(13));
    ASSERT_TRUE(steps.start(**server));
    restart();
    machine.change(machineOf(13, true));
    ASSERT_TRUE(steps.start(**server));
    std::string why;
    EXPECT_EQ(scenario::generationOf((*server)->enumInstances("TAV_StorageSCSIDevice"), why), 13U) << why;
    EXPECT_THAT(agent.alerts(), IsEmpty());
}

TEST_P(Restarted, MonitoringCycleIsKept)
{
    ASSERT_TRUE(steps.start(**server));
    const broker::Reply set =
        (*server)->invokeMethod("TAV_StorageConfig", "SetMonitorCycle", {{"MonitorCycle", broker::Value::text("77")}});
    EXPECT_TRUE(set.ok()) << set.message;
    restart();
    ASSERT_TRUE(steps.start(**server));
    const broker::Reply config = (*server)->getInstance("TAV_StorageConfig");
    ASSERT_EQ(config.instances.size(), 1U) << config.message;
    EXPECT_EQ(config.instances[0].find("MonitorCycle")->toString(), "77");
}

INSTANTIATE_TEST_SUITE_P(Kinds, Restarted, testing::ValuesIn(kRestarts),
                         [](const auto &testInfo) { return std::string(testInfo.param.name); });

} // namespace

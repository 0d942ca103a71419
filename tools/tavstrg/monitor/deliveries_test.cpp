// SPDX-License-Identifier: Apache-2.0
#include "tavstrg/monitor/deliveries.h"

#include "runtime/field_text.h"
#include "support/tool_fixture.h"

#include <gmock/gmock.h>

#include <thread>

namespace {

using namespace tool::monitor;
using namespace std::chrono_literals;
using testing::HasSubstr;
using tool::testing_support::contentOf;

// One event on its way to the agent, whose place is taken by a shell command.
class MonitorDeliveries : public tool::testing_support::ToolTest {
protected:
    void SetUp() override
    {
        ToolTest::SetUp();
        config_.journal.clear();
        config_.hooks.clear();
        config_.agent = true;
        Report report{};
        report.number = 1;
        report.event.kind = tavstrg::disks::EventKind::failing;
        tavstrg::copyText(report.event.id, "naa.5000000000000001");
        std::fill(std::begin(report.delivery), std::end(report.delivery), Delivery::unwanted);
        report.on(Route::agent) = Delivery::waiting;
        state_.next = 2;
        state_.reports.push_back(report);
    }
    std::string path(const std::string &name) const { return (directory_ / name).string(); }
    // Notes that it ran and whether the event is a repeated one, then does the rest.
    Deliveries deliveries(const std::string &rest)
    {
        const std::string note = "echo \"run$TAVSTRG_REPEATED\" >> " + path("runs") + "; ";
        return {state_, file_, {{"/bin/sh", "-c", note + rest}}, [](const std::string &, const std::string &) {}};
    }
    static bool deliverAll(Deliveries &deliveries, int64_t now)
    {
        deliveries.deliver(now);
        for (int i = 0; i < 3000 && !deliveries.isSettled(); ++i) {
            std::this_thread::sleep_for(10ms);
            deliveries.deliver(now);
        }
        return deliveries.isSettled();
    }
    Delivery letter() const { return state_.reports[0].on(Route::agent); }

    Config config_;
    State state_;
    StateFile file_{directory_.string()};
};

TEST_F(MonitorDeliveries, RouteThatIsSwitchedOffLeavesTheFileWhole)
{
    StateFile file(directory_.string());
    Deliveries routes(state_, file, {{"/bin/true"}}, [](const std::string &, const std::string &) {});
    routes.configure(config_);
    ASSERT_EQ(file.save(state_), 0);
    config_.agent = false;
    routes.configure(config_);
    State again;
    EXPECT_EQ(parseState(contentOf(path("monitor.state")), again), StateRead::whole);
    ASSERT_EQ(again.reports.size(), 1U);
    EXPECT_FALSE(isOpen(again.reports[0])) << "the event is given up";
}

TEST_F(MonitorDeliveries, RouteThatIsSwitchedOffWhileItsProgramRunsStaysOff)
{
    Deliveries routes = deliveries("exit 1");
    routes.configure(config_);
    routes.deliver(0);
    config_.agent = false;
    routes.configure(config_);
    ASSERT_TRUE(deliverAll(routes, 0));
    EXPECT_EQ(letter(), Delivery::done);
    EXPECT_EQ(routes.open(), 0U);
    EXPECT_FALSE(routes.wakeAt());
}

TEST_F(MonitorDeliveries, EventOfAnAgentRunThatWasKilledIsRepeatedWithTheMark)
{
    Deliveries routes = deliveries("kill -9 $$");
    routes.configure(config_);
    ASSERT_TRUE(deliverAll(routes, 0));
    EXPECT_EQ(letter(), Delivery::sending);
    ASSERT_TRUE(deliverAll(routes, kRetryMs));
    EXPECT_EQ(contentOf(path("runs")), "run\nrun1\n");
}

TEST_F(MonitorDeliveries, EventThatTheAgentRefusesIsTriedAgainWithoutTheMark)
{
    Deliveries routes = deliveries("exit 1");
    routes.configure(config_);
    ASSERT_TRUE(deliverAll(routes, 0));
    EXPECT_EQ(letter(), Delivery::waiting);
    ASSERT_TRUE(deliverAll(routes, kRetryMs));
    EXPECT_EQ(contentOf(path("runs")), "run\nrun\n");
    state_.reports[0].on(Route::agent) = Delivery::sending; // as after a kill
    ASSERT_TRUE(deliverAll(routes, 2 * kRetryMs));
    EXPECT_EQ(letter(), Delivery::sending) << "the earlier run may have reached the agent";
    EXPECT_EQ(contentOf(path("runs")), "run\nrun\nrun1\n");
}

} // namespace

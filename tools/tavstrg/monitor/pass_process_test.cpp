// SPDX-License-Identifier: Apache-2.0
#include "tavstrg/monitor/pass_process.h"

#include "sim/sim.h"

#include <gmock/gmock.h>
#include <nlohmann/json.hpp>
#include <poll.h>

#include <cerrno>
#include <string>

namespace {

using namespace tool::monitor;
using tavstrg::disks::HealthState;
using tavstrg::disks::PassLimits;

TEST(MonitorPassLimits, PassEndsByItselfBeforeItIsAbandoned)
{
    EXPECT_EQ(passLimits(0).wholeMs, 45000U);
    for (const int32_t disks : {0, 6, 128, INT32_MAX}) {
        const PassLimits limits = passLimits(disks);
        EXPECT_GE(limits.wholeMs, 3 * limits.deadlineMs);
        EXPECT_LT(limits.wholeMs + limits.deadlineMs, kLongestPassMs);
    }
}

sim::Machine machineOfHangingDisks(int count)
{
    nlohmann::json devices = nlohmann::json::array();
    for (int id = 0; id < count; ++id) {
        devices.push_back({{"id", id},
                           {"ata", true},
                           {"model", "DISK"},
                           {"serial", "SER-" + std::to_string(id)},
                           {"faults", {{{"on", "any"}, {"hang", true}}}}});
    }
    const nlohmann::json host = {{"number", 0}, {"driver", "ahci"}, {"devices", devices}};
    return sim::Machine(nlohmann::json{{"hosts", {host}}}.dump());
}

PassLimits shortLimits(int32_t /*disks*/)
{
    return {.deadlineMs = 100, .wholeMs = 250};
}

TEST(MonitorPassProcess, FirstPassNamesDisksThatHangOnOneAdapter)
{
    const sim::Machine machine = machineOfHangingDisks(6);
    PassProcess pass(shortLimits);
    ASSERT_EQ(pass.start(-1), 0);
    PassProcess::Progress progress = PassProcess::Progress::running;
    while (progress == PassProcess::Progress::running) {
        pollfd wait = {pass.descriptor(), POLLIN, 0};
        ASSERT_EQ(poll(&wait, 1, 30000), 1);
        progress = pass.take();
    }
    ASSERT_EQ(progress, PassProcess::Progress::done);
    ASSERT_EQ(pass.disks().count(), 6);
    int hung = 0;
    int left = 0;
    for (const tavstrg::disks::Disk &disk : pass.disks()) {
        hung += disk.health.state == HealthState::unreadable ? 1 : 0;
        left += disk.health.state == HealthState::unknown ? 1 : 0;
    }
    EXPECT_GE(hung, 1);
    EXPECT_GE(left, 1);
    EXPECT_EQ(hung + left, 6);
}

TEST(MonitorPassProcess, NoneIsStartedWhileTooManyLinger)
{
    PassProcess pass(passLimits, 0);
    EXPECT_EQ(pass.start(-1), EBUSY);
    EXPECT_FALSE(pass.isRunning());
}

} // namespace

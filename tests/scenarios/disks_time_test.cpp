// SPDX-License-Identifier: Apache-2.0
// What the disks engine costs: finding and naming the disks, and a pass over them.
#include "scenarios/disks_time.h"

#include "disks/pass/pass.h"

#include <nlohmann/json.hpp>

using namespace tavstrg::disks;

namespace {

TEST(DisksTime, PassOver128DisksOf16Adapters)
{
    constexpr int kDisks = 128;
    nlohmann::json machine = machines::disks(kDisks);
    machines::forEachDevice(machine, [](nlohmann::json &disk) { disk["delayMs"] = 2; });
    const sim::Machine simulated(machines::text(machine));
    Array<Disk> disks;
    ASSERT_EQ(findDisks(disks), FindResult::done);
    ASSERT_EQ(disks.count(), kDisks);
    const scenario::Cost cost = scenario::bestOf(5, [&disks] {
        Pass pass;
        ASSERT_TRUE(pass.run(disks));
    });
    scenario::report("pass", cost);
    EXPECT_LE(cost.clock, 0.2);
    EXPECT_LE(cost.cpu, 0.010);
    EXPECT_TRUE(std::all_of(disks.begin(), disks.end(),
                            [](const Disk &disk) { return disk.health.state == HealthState::good; }));
}

TEST(DisksTime, FindingAndNaming512Disks)
{
    EXPECT_LE(scenario::findingSecondsPerDisk(512), scenario::kMostFindingSeconds);
}

} // namespace

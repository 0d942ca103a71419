// SPDX-License-Identifier: Apache-2.0
// Sleeping disks across restarts and in the monitoring thread, with "sleeping-disks" in options.inf.
#include "scenarios/restarts.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <memory>

namespace {

using nlohmann::json;
using scenario::Restart;
using scenario::Server;
using testing::IsEmpty;

// A failing solid-state drive, with this power state.
json drive(const json &power)
{
    json one = machines::ataDisk("MODELNAME0123456", "SERIAL-1", 1UL << 34);
    one["power"] = power;
    one["smart"] = {{"failing", true}, {"attributes", {{{"id", 231}, {"current", 70}}}}};
    return one;
}

// Another drive comes first after the change, so that the index of the drive is another.
std::string machineOf(const json &power, const std::string &options, bool moved = false)
{
    json machine = moved ? machines::withDevices({machines::ataDisk("MODEL-0", "SERIAL-0", 1UL << 30), drive(power)})
                         : machines::withDevices({drive(power)});
    machine["files"]["options.inf"] = options;
    machine["files"]["tavm2ssd.inf"] = "[Endurance Remaining]\nMODELNAME0123456,231,100,80,60,40,20,0\n";
    machine["agent"] = {{"libraries", true}};
    return machine.dump();
}

const json kActive = {{"state", "active"}};
const json kStandby = {{"state", "standby"}};
const json kSuspended = {{"state", "standby"}, {"runtimeStatus", "suspended"}};

const Restart kRestarts[] = {scenario::kRestartOfTheThread, scenario::kRestartOfTheBroker};

class SleepingRestart : public testing::TestWithParam<std::tuple<Restart, const char *>> {
protected:
    // Properties of the last instance of a class, those without its index.
    json last(const char *className)
    {
        const json all = scenario::everythingOf(**server);
        json instance = all.at(className).at("instances").back();
        for (const char *const number : {"Index", "DeviceTypeIndex", "InterfaceTypeIndex", "HDDIndex", "TargetID"}) {
            instance.erase(number);
        }
        return instance;
    }

    scenario::Agent agent;
    const std::string options = std::get<1>(GetParam());
    sim::Machine machine{machineOf(kActive, options)};
    scenario::Steps steps;
    std::unique_ptr<Server> server = std::make_unique<Server>(scenario::inServiceMode());
};

TEST_P(SleepingRestart, ASleepingDiskKeepsItsValuesAndRaisesNoAlert)
{
    ASSERT_TRUE(steps.start(**server));
    ASSERT_TRUE(steps.pass());
    const json disk = last("TAV_StorageHardDisk");
    const json device = last("TAV_StorageSCSIDevice");
    const json wear = last("TAV_StorageLifeSpan");
    agent.forget();
    for (const json &power : {kStandby, kSuspended, kStandby}) {
        SCOPED_TRACE(power.dump());
        std::get<0>(GetParam()).happen(server);
        machine.change(machineOf(power, options));
        const unsigned spinUps = machine.power("/dev/sda").spinUps;
        ASSERT_TRUE(steps.start(**server));
        ASSERT_TRUE(steps.pass());
        EXPECT_EQ(last("TAV_StorageHardDisk"), disk);
        EXPECT_EQ(last("TAV_StorageSCSIDevice"), device);
        EXPECT_EQ(last("TAV_StorageLifeSpan"), wear);
        EXPECT_EQ(machine.power("/dev/sda").spinUps, spinUps);
        EXPECT_THAT(agent.alerts(), IsEmpty());
    }
}

TEST_P(SleepingRestart, ASleepingDiskIsFoundAtAnotherIndex)
{
    ASSERT_TRUE(steps.start(**server));
    ASSERT_TRUE(steps.pass());
    const json disk = last("TAV_StorageHardDisk");
    const json wear = last("TAV_StorageLifeSpan");
    std::get<0>(GetParam()).happen(server);
    machine.change(machineOf(kStandby, options, true));
    ASSERT_TRUE(steps.start(**server));
    ASSERT_TRUE(steps.pass());
    EXPECT_EQ(last("TAV_StorageHardDisk"), disk);
    EXPECT_EQ(last("TAV_StorageLifeSpan"), wear);
}

INSTANTIATE_TEST_SUITE_P(Kinds, SleepingRestart,
                         testing::Combine(testing::ValuesIn(kRestarts), testing::Values("sleeping-disks\n", "all\n")),
                         [](const auto &testInfo) {
                             return std::string(std::get<0>(testInfo.param).name) +
                                    (std::string(std::get<1>(testInfo.param)) == "all\n" ? "WithAll" : "");
                         });

} // namespace

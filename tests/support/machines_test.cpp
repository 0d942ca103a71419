// SPDX-License-Identifier: Apache-2.0
#include "support/machines.h"

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include <stdexcept>

namespace {

using machines::json;

TEST(Machines, DevicesAreSpreadOverHostAdapters)
{
    const json machine = machines::disks(5, 2);
    ASSERT_EQ(machine["hosts"].size(), 3U);
    for (size_t host = 0; host < 3; ++host) {
        EXPECT_EQ(machine["hosts"][host]["number"], host);
        EXPECT_EQ(machine["hosts"][host]["devices"].size(), host < 2 ? 2U : 1U);
    }
    EXPECT_EQ(machine["hosts"][1]["devices"][1]["id"], 1);
    EXPECT_EQ(machine["hosts"][2]["devices"][0]["serial"], "SER100004");
}

TEST(Machines, HostAdapterWithoutDevicesIsKept)
{
    json machine = machines::withoutDevices();
    machines::addHost(machine, 0);
    machines::addHost(machine, 0);
    machines::attach(machine, 9, machines::ataDisk(0));
    ASSERT_EQ(machine["hosts"].size(), 2U);
    EXPECT_TRUE(machine["hosts"][0]["devices"].empty());
}

TEST(Machines, DeviceAtCountsThroughHostAdapters)
{
    json machine = machines::disks(3, 2);
    EXPECT_EQ(machines::deviceAt(machine, 2)["model"], "MODEL-1002");
    EXPECT_THROW(machines::deviceAt(machine, 3), std::out_of_range);
}

TEST(Machines, ForEachDeviceSkipsHostAdaptersWithoutDevices)
{
    json machine = json::parse(R"({"hosts": [{"driver": "ahci"}, {"devices": [{"id": 1}, {"id": 2}]}]})");
    machines::forEachDevice(machine, [](json &device) { device["seen"] = true; });
    EXPECT_FALSE(machine["hosts"][0].contains("devices"));
    EXPECT_EQ(machine["hosts"][1]["devices"], json::parse(R"([{"id": 1, "seen": true}, {"id": 2, "seen": true}])"));
}

} // namespace

// SPDX-License-Identifier: Apache-2.0
// Requests of several clients at once, on a machine that changes, and cleanups that overlap. Run under the thread
// sanitizer too.
#include "scenarios/scenario.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <set>
#include <thread>

namespace {

using broker::Reply;
using broker::Value;
using scenario::Server;

constexpr int kClients = 8;

TEST(Threads, FirstRequestsBuildTheStoreOnce)
{
    sim::Machine machine(machines::ofDisks(6));
    Server server;
    std::vector<std::thread> clients;
    std::atomic<int> answered = 0;
    for (int i = 0; i < kClients; ++i) {
        clients.emplace_back([&, i] {
            const Reply reply = server->enumInstances(scenario::indexedClasses().at(static_cast<size_t>(i % 2)));
            EXPECT_TRUE(reply.ok()) << reply.message;
            answered += reply.ok() ? 1 : 0;
        });
    }
    for (std::thread &client : clients) {
        client.join();
    }
    EXPECT_EQ(answered, kClients);
    server->stop();
    scenario::expectNothingLeft(*server);
}

// Every answer is a state that the machine had while disks were plugged and unplugged: 2 to 9 whole disks.
void checkDevices(const Reply &reply)
{
    if (!reply.ok()) {
        EXPECT_EQ(reply.message, "strgGetInstance() FAILED") << reply.rc; // a disk was removed during a collection
        return;
    }
    EXPECT_GE(reply.instances.size(), 2U);
    EXPECT_LE(reply.instances.size(), 9U);
    size_t position = 0;
    size_t disks = 0;
    for (const broker::Instance &device : reply.instances) {
        EXPECT_EQ(device.find("Index")->toString(), std::to_string(++position));
        if (device.find("DeviceType")->toString() == "4") {
            continue; // removed between the listing and the reading
        }
        EXPECT_EQ(device.find("DeviceTypeIndex")->toString(), std::to_string(++disks));
        const std::string serial = device.find("SerialNumber")->toString();
        ASSERT_THAT(serial, testing::StartsWith("SER1000"));
        const int disk = std::stoi(serial.substr(3)) - 100000;
        const std::string model = device.find("Model")->toString(); // empty if it was removed after its type was read
        EXPECT_THAT(model, testing::AnyOf("", testing::StartsWith("MODEL-" + std::to_string(1000 + disk))));
        EXPECT_EQ(device.find("TargetID")->toString(), std::to_string(disk % 8));
    }
}

TEST(Threads, RequestsSeeNoTornRecords)
{
    sim::Machine machine(machines::ofDisks(2));
    Server server;
    ASSERT_TRUE(server->enumInstances("TAV_StorageHardDisk").ok());
    std::atomic<bool> stop = false;
    std::vector<std::thread> clients;
    std::atomic<int> answers = 0;
    for (int i = 0; i < kClients; ++i) {
        clients.emplace_back([&, i] {
            while (!stop) {
                checkDevices(server->enumInstances("TAV_StorageSCSIDevice"));
                if (i % 2 == 0) {
                    const Reply one = server->getInstance("TAV_StorageSCSIDevice", {{"Index", Value::text("1")}});
                    EXPECT_THAT(one.rc, testing::AnyOf(0, 1)) << one.message;
                } else if (i == 1) {
                    server->invokeMethod("TAV_StorageConfig", "SetMonitorCycle", {{"MonitorCycle", Value::text("60")}});
                }
                ++answers;
            }
        });
    }
    const size_t disks[] = {5, 9, 2};
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(6);
    for (int i = 0; std::chrono::steady_clock::now() < end; ++i) {
        machine.change(machines::ofDisks(disks[i % 3]));
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
    }
    stop = true;
    for (std::thread &client : clients) {
        client.join();
    }
    EXPECT_GT(answers, kClients);
    server->stop();
    scenario::expectNothingLeft(*server);
}

TEST(Threads, OverlappingCleanupsReturnAndFreeOnce)
{
    for (int round = 0; round < 5; ++round) {
        sim::Machine machine(machines::ofDisks(4));
        Server server;
        ASSERT_TRUE(server->enumInstances("TAV_StorageHardDisk").ok());
        std::vector<std::thread> threads;
        std::atomic<int> returned = 0;
        for (int i = 0; i < 5; ++i) {
            threads.emplace_back([&, i] {
                const Reply reply = i % 2 == 0 ? server->cleanupInstance(true) : server->cleanupMethod(true);
                EXPECT_EQ(reply.rc, 0) << reply.message;
                ++returned;
            });
        }
        for (std::thread &thread : threads) {
            thread.join();
        }
        EXPECT_EQ(returned, 5);
        EXPECT_TRUE(server->enumInstances("TAV_StorageHardDisk").ok()) << "a request after the cleanup works";
        server->stop();
        scenario::expectNothingLeft(*server);
    }
}

// A refused stop frees the store all the same, beside other requests.
TEST(Threads, RefusedStopsLeaveALoadableState)
{
    sim::Machine machine(machines::ofDisks(4));
    Server server;
    ASSERT_TRUE(server->enumInstances("TAV_StorageHardDisk").ok());
    std::atomic<bool> stop = false;
    std::vector<std::thread> clients;
    const auto repeat = [&](auto request) {
        clients.emplace_back([&stop, request] {
            while (!stop) {
                request();
            }
        });
    };
    repeat([&] { server->invokeMethod("TAV_StorageThread", "StopMonitoringThread"); });
    for (int i = 0; i < 3; ++i) {
        repeat([&] {
            const Reply reply = server->enumInstances("TAV_StorageHardDisk");
            EXPECT_TRUE(!reply.ok() || reply.instances.size() == 4U) << reply.instances.size();
        });
    }
    repeat([&] {
        const Reply reply = server->cleanupInstance(true);
        EXPECT_THAT(reply.rc, testing::AnyOf(0, 1)) << reply.message;
    });
    std::this_thread::sleep_for(std::chrono::seconds(4));
    stop = true;
    for (std::thread &client : clients) {
        client.join();
    }
    const std::string saved = machine.read("/opt/qlm/tavkit_sa/data/tavstrgsave.dat");
    EXPECT_THAT(saved, testing::StartsWith("# Version=1.0.0.1\n"));
    EXPECT_GE(saved.size(), 50U) << "configuration and totals are in it";
    server->stop();
    scenario::expectNothingLeft(*server);
}

} // namespace

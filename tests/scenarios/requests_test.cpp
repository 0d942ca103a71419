// SPDX-License-Identifier: Apache-2.0
// Requests of clients and their answers, through the shared object as it ships.
#include "scenarios/scenario.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using broker::Value;
using scenario::Server;

const char *const kStateFile = "/opt/qlm/tavkit_sa/data/tavstrgsave.dat";

class ExampleMachine : public testing::TestWithParam<std::string> {};

TEST_P(ExampleMachine, AnswersEveryClassAndLeaksNothing)
{
    sim::Machine machine(scenario::exampleMachine(GetParam()));
    Server server;
    const auto totals = scenario::totalsOf(*server);
    ASSERT_EQ(totals.size(), 8U);
    const std::vector<std::string> counted = {
        "TAV_StorageController", "TAV_StorageSCSIDevice", "TAV_StorageIDEDevice",     "TAV_StorageHardDisk",
        "TAV_StorageCDROM",      "TAV_StorageTape",       "TAV_StorageOpticalMemory", "TAV_StorageMisc"};
    for (size_t i = 0; i < counted.size(); ++i) {
        const broker::Reply reply = server->enumInstances(counted[i]);
        EXPECT_EQ(reply.instances.size(), totals[i]) << counted[i];
        if (totals[i] == 0) {
            EXPECT_EQ(reply.rc, CMPI_RC_ERR_NOT_FOUND) << counted[i];
            EXPECT_EQ(reply.message, "NotFound Data") << counted[i];
        } else {
            EXPECT_EQ(reply.rc, CMPI_RC_OK) << counted[i] << ": " << reply.message;
            EXPECT_TRUE(reply.done) << counted[i];
        }
    }
    EXPECT_EQ(machine.unknownIoctls(), 0U);
    server->stop();
    scenario::expectNothingLeft(*server);
}

TEST_P(ExampleMachine, GetInstanceMatchesTheEnumeration)
{
    sim::Machine machine(scenario::exampleMachine(GetParam()));
    Server server;
    for (const std::string &name : scenario::indexedClasses()) {
        const broker::Reply all = server->enumInstances(name);
        uint64_t expected = 1;
        for (const broker::Instance &instance : all.instances) {
            const Value *const index = instance.find("Index");
            ASSERT_NE(index, nullptr);
            EXPECT_EQ(index->toString(), std::to_string(expected)) << "indexes are 1-based without gaps";
            if (expected == 1 || expected == all.instances.size()) {
                const broker::Reply one = server->getInstance(name, {{"Index", *index}});
                ASSERT_TRUE(one.ok()) << name << ": " << one.message;
                ASSERT_EQ(one.instances.size(), 1U);
                for (const broker::NamedValue &property : instance.properties) {
                    const Value *const same = one.instances[0].find(property.name);
                    ASSERT_NE(same, nullptr) << property.name;
                    EXPECT_EQ(same->toString(), property.value.toString()) << name << "." << property.name;
                }
            }
            ++expected;
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Examples, ExampleMachine,
                         testing::Values("workstation", "server", "large", "ide", "usb", "empty"),
                         [](const auto &testInfo) { return testInfo.param; });

TEST(Requests, UnknownKeyIsInvalidAndKeyZeroUnreadable)
{
    sim::Machine machine(scenario::exampleMachine("workstation"));
    Server server;
    broker::Reply reply = server->getInstance("TAV_StorageHardDisk", {{"Index", Value::text("77")}});
    EXPECT_EQ(reply.rc, 4);
    EXPECT_EQ(reply.message, "NotFound Index");
    reply = server->getInstance("TAV_StorageHardDisk", {{"Index", Value::text("0")}});
    EXPECT_EQ(reply.rc, 1);
    EXPECT_EQ(reply.message, "getKeyIndex() FAILED");
    reply = server->getInstance("TAV_StorageTape", {{"Index", Value::text("1")}});
    EXPECT_EQ(reply.rc, 6);
    EXPECT_EQ(reply.message, "NotFound Data");
}

TEST(Requests, ClassNameInOtherCaseIsUnknown)
{
    sim::Machine machine(scenario::exampleMachine("workstation"));
    Server server;
    const broker::Reply reply = server->enumInstances("tav_storageharddisk");
    EXPECT_EQ(reply.rc, 1);
    EXPECT_EQ(reply.message, "Generic Failure!!");
}

TEST(Requests, UnsupportedOperationsAnswerWithoutInitialising)
{
    sim::Machine machine(scenario::exampleMachine("workstation"));
    Server server;
    for (const broker::Reply &reply :
         {server->enumInstanceNames("TAV_StorageHardDisk"), server->createInstance("TAV_StorageHardDisk"),
          server->modifyInstance("TAV_StorageHardDisk"), server->deleteInstance("TAV_StorageHardDisk"),
          server->execQuery("TAV_StorageHardDisk", "select * from TAV_StorageHardDisk")}) {
        EXPECT_EQ(reply.rc, 7);
        EXPECT_EQ(reply.message, "NOT_SUPPORTED");
    }
    EXPECT_TRUE(machine.commands().empty()) << "no device was asked";
    EXPECT_FALSE(machine.exists("/opt/qlm/tavkit_sa/work/tavstrgshm.key0")) << "the store was not built";
}

TEST(Requests, ChangedMachineIsSeenByTheNextRequest)
{
    sim::Machine machine(machines::ofDisks(3));
    Server server;
    EXPECT_EQ(server->enumInstances("TAV_StorageHardDisk").instances.size(), 3U);
    machine.change(machines::ofDisks(9));
    EXPECT_EQ(server->enumInstances("TAV_StorageHardDisk").instances.size(), 9U);
    EXPECT_EQ(server->enumInstances("TAV_StorageController").instances.size(), 2U);
    EXPECT_EQ(scenario::totalsOf(*server)[3], 9U);
    machine.change(machines::ofDisks(1));
    EXPECT_EQ(server->enumInstances("TAV_StorageHardDisk").instances.size(), 1U);
    machine.change(machines::ofDisks(0));
    EXPECT_EQ(server->enumInstances("TAV_StorageHardDisk").message, "NotFound Data");
    server->stop();
    scenario::expectNothingLeft(*server);
}

TEST(Requests, SettingsSurviveAStopAndAStart)
{
    sim::Machine machine(scenario::exampleMachine("workstation"));
    {
        Server server;
        const broker::Reply reply =
            server->invokeMethod("TAV_StorageConfig", "SetMonitorCycle", {{"MonitorCycle", Value::text("120")}});
        ASSERT_TRUE(reply.ok()) << reply.message;
        EXPECT_TRUE(reply.done);
        server->stop();
    }
    ASSERT_TRUE(machine.exists(kStateFile));
    Server server;
    const broker::Reply config = server->getInstance("TAV_StorageConfig");
    ASSERT_EQ(config.instances.size(), 1U);
    EXPECT_EQ(config.instances[0].find("MonitorCycle")->toString(), "120");
    EXPECT_EQ(config.instances[0].find("MonitorCycleMin")->toString(), "10");
    EXPECT_EQ(config.instances[0].find("MonitorCycleMax")->toString(), "3600");
    EXPECT_EQ(config.instances[0].find("MonitorCycleDefault")->toString(), "60");
}

TEST(Requests, SavedStateIsReportedWithoutCollection)
{
    sim::Machine machine(scenario::exampleMachine("workstation"));
    {
        Server server;
        ASSERT_TRUE(server->enumInstances("TAV_StorageHardDisk").ok());
        server->stop();
    }
    machine.forgetCommands();
    Server server;
    ASSERT_TRUE(server->getInstance("TAV_StorageConfig").ok());
    EXPECT_TRUE(machine.commands().empty()) << "initialisation read the file and asked no device";
}

TEST(Requests, EnumeratedSingletonEqualsGetInstance)
{
    sim::Machine machine(scenario::exampleMachine("workstation"));
    Server server;
    for (const char *const name : {"TAV_StorageConfig", "TAV_StorageTotalNumber", "TAV_StorageThread"}) {
        const broker::Reply all = server->enumInstances(name);
        const broker::Reply one = server->getInstance(name);
        ASSERT_EQ(all.instances.size(), 1U) << name;
        ASSERT_EQ(one.instances.size(), 1U) << name;
        ASSERT_EQ(all.instances[0].properties.size(), one.instances[0].properties.size());
        for (size_t i = 0; i < all.instances[0].properties.size(); ++i) {
            EXPECT_EQ(all.instances[0].properties[i].value.toString(), one.instances[0].properties[i].value.toString());
        }
    }
}

TEST(Requests, WithoutThreadOnlyTheThreadClassAnswers)
{
    sim::Machine machine(scenario::exampleMachine("workstation"));
    Server server({.serviceMode = true});
    const broker::Reply thread = server->getInstance("TAV_StorageThread");
    ASSERT_TRUE(thread.ok()) << thread.message;
    EXPECT_EQ(thread.instances.at(0).find("ThreadRunning")->toString(), "0");
    const broker::Reply disks = server->enumInstances("TAV_StorageHardDisk");
    EXPECT_EQ(disks.rc, 1);
    EXPECT_EQ(disks.message, "ServiceMode But NonThread Failure!!");
    server->stop();
    scenario::expectNothingLeft(*server);
}

TEST(Requests, IdleProviderIsUnloadedAndReloaded)
{
    sim::Machine machine(scenario::exampleMachine("workstation"));
    Server server;
    const nlohmann::json before = scenario::everythingOf(*server);
    ASSERT_TRUE(server->idle());
    scenario::expectNothingLeft(*server);
    ASSERT_EQ(server->load(scenario::providerFile()), "");
    EXPECT_EQ(scenario::everythingOf(*server), before);
    server->stop();
    scenario::expectNothingLeft(*server);
}

TEST(Requests, UnlistedDriverIsLeftOut)
{
    sim::Machine machine(machines::ofDisks(4));
    machine.write("/opt/qlm/tavkit_sa/data/storage.inf", "[Management Port]\nanother\n[Diagnostic Port]\n");
    Server server;
    EXPECT_EQ(server->enumInstances("TAV_StorageHardDisk").message, "NotFound Data");
    EXPECT_EQ(server->enumInstances("TAV_StorageController").message, "NotFound Data");
    EXPECT_TRUE(machine.exists(kStateFile));
}

} // namespace

// SPDX-License-Identifier: Apache-2.0
// Damaged, absurd or hostile input: administrator files, the saved-state file, sysfs and devices. The provider answers,
// traces the reason, keeps its last good state and leaks nothing.
#include "scenarios/scenario.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <ostream>
#include <random>

namespace {

using broker::Reply;
using nlohmann::json;
using scenario::Server;

const char *const kStateFile = "/opt/qlm/tavkit_sa/data/tavstrgsave.dat";
const char *const kStorageInf = "/opt/qlm/tavkit_sa/data/storage.inf";

class BadInput : public testing::Test {
protected:
    sim::Machine machine_{machines::ofDisks(3)};

    // Returns the number of hard disks that a newly started provider reports. It leaks nothing.
    size_t disksSeen()
    {
        Server server;
        const size_t disks = server->enumInstances("TAV_StorageHardDisk").instances.size();
        server->stop();
        scenario::expectNothingLeft(*server);
        machine_.remove(kStateFile);
        return disks;
    }
};

TEST_F(BadInput, StorageInfAbove65536BytesIsRefused)
{
    const std::string names = "[Management Port]\nahci\n[Diagnostic Port]\n";
    machine_.write(kStorageInf, names + std::string(65536 - names.size(), '\n'));
    EXPECT_EQ(disksSeen(), 3U);
    machine_.write(kStorageInf, names + std::string(65537 - names.size(), '\n'));
    EXPECT_EQ(disksSeen(), 0U);
}

TEST_F(BadInput, BinaryBytesInStorageInfAreSkipped)
{
    std::mt19937 random(7);
    std::string noise;
    for (int i = 0; i < 4000; ++i) {
        noise += static_cast<char>(random());
    }
    machine_.write(kStorageInf, "ahci\n" + noise);
    EXPECT_EQ(disksSeen(), 3U);
    machine_.write(kStorageInf, noise);
    EXPECT_EQ(disksSeen(), 0U);
}

TEST_F(BadInput, DriverNameAbove64CharactersDoesNotMatch)
{
    for (const size_t length : {64U, 65U}) {
        json description = machines::disks(3);
        const std::string driver(length, 'd');
        for (json &host : description["hosts"]) {
            host["driver"] = driver.substr(0, 63); // an attribute is cut to 63 characters
        }
        machine_.change(machines::text(description));
        machine_.write(kStorageInf, driver.substr(0, 63) + "\n" + driver + "\n");
        EXPECT_EQ(disksSeen(), 3U) << length;
        machine_.write(kStorageInf, driver + "\n");
        EXPECT_EQ(disksSeen(), 0U) << "a longer name is another name";
    }
}

TEST_F(BadInput, ADirectoryOrFifoAsStorageInfManagesNothing)
{
    machine_.remove(kStorageInf);
    machine_.makeDirectory(kStorageInf);
    EXPECT_EQ(disksSeen(), 0U);
    machine_.remove(kStorageInf);
    ASSERT_EQ(::mkfifo(machine_.where(kStorageInf).c_str(), 0600), 0);
    EXPECT_EQ(disksSeen(), 0U);
}

// The saved state of a provider on that machine.
std::string savedState(const sim::Machine &machine)
{
    Server server;
    EXPECT_TRUE(server->enumInstances("TAV_StorageHardDisk").ok());
    server->stop();
    return machine.read(kStateFile);
}

TEST_F(BadInput, TruncatedSavedStateCausesCollection)
{
    const std::string whole = savedState(machine_);
    ASSERT_GT(whole.size(), 18U + 12U + 20U);
    for (size_t length = 0; length < whole.size(); length += length < 64 ? 1 : 61) {
        SCOPED_TRACE("cut to " + std::to_string(length) + " bytes");
        machine_.write(kStateFile, whole.substr(0, length));
        machine_.forgetCommands();
        Server server;
        const Reply config = server->getInstance("TAV_StorageConfig");
        ASSERT_TRUE(config.ok()) << config.message;
        EXPECT_EQ(config.instances.at(0).find("MonitorCycle")->toString(), "60");
        EXPECT_FALSE(machine_.commands().empty()) << "the machine was collected";
        EXPECT_EQ(scenario::totalsOf(*server).at(3), 3U);
        server->stop();
        scenario::expectNothingLeft(*server);
    }
}

TEST_F(BadInput, SavedStateWithExtraBytesIsRead)
{
    const std::string whole = savedState(machine_);
    machine_.write(kStateFile, whole + std::string(100000, 'x'));
    machine_.forgetCommands();
    Server server;
    EXPECT_TRUE(server->getInstance("TAV_StorageConfig").ok());
    EXPECT_TRUE(machine_.commands().empty()) << "the state was taken from the file";
}

TEST_F(BadInput, ASavedStateWithAFlippedBitNeverDoesHarm)
{
    const std::string whole = savedState(machine_);
    std::mt19937 random(11);
    for (int i = 0; i < 120; ++i) {
        std::string damaged = whole;
        const size_t bit = i < 50 * 8 ? static_cast<size_t>(i) * 3 % (50 * 8) : random() % (whole.size() * 8);
        damaged[bit / 8] = static_cast<char>(damaged[bit / 8] ^ (1 << bit % 8));
        SCOPED_TRACE("bit " + std::to_string(bit));
        machine_.write(kStateFile, damaged);
        Server server;
        EXPECT_TRUE(server->getInstance("TAV_StorageConfig").ok());
        EXPECT_EQ(server->enumInstances("TAV_StorageHardDisk").instances.size(), 3U);
        server->stop();
        scenario::expectNothingLeft(*server);
    }
}

struct Attribute {
    const char *name;
    std::string content;
    bool directory;
};

void PrintTo(const Attribute &attribute, std::ostream *out)
{
    *out << attribute.name;
}

class BadAttribute : public BadInput, public testing::WithParamInterface<std::tuple<Attribute, const char *>> {};

TEST_P(BadAttribute, LeavesEveryClassAnswering)
{
    const auto &[attribute, file] = GetParam();
    const std::string path = std::string("/sys/bus/scsi/devices/0:0:1:0/") + file;
    ASSERT_TRUE(machine_.exists(path)) << path;
    if (attribute.directory) {
        machine_.remove(path);
        machine_.makeDirectory(path);
    } else {
        machine_.write(path, attribute.content);
    }
    Server server;
    Reply devices = server->enumInstances("TAV_StorageSCSIDevice");
    if (!devices.ok()) {
        // A disk without its type uses up a disk name, and the last disk has none: reported as a failure.
        EXPECT_STREQ(file, "type");
        EXPECT_EQ(devices.message, "strgInitProvider() Failure!!");
        machine_.remove(path);
        machine_.write(path, "0\n");
        devices = server->enumInstances("TAV_StorageSCSIDevice");
        ASSERT_TRUE(devices.ok()) << devices.message;
    }
    EXPECT_EQ(devices.instances.size(), 3U) << "the device is there, whatever its texts say";
    for (const broker::Instance &device : devices.instances) {
        EXPECT_LT(device.find("Vendor")->toString().size(), 32U);
        EXPECT_LT(device.find("Model")->toString().size(), 32U);
        EXPECT_LT(device.find("FirmwareRevision")->toString().size(), 16U);
    }
    server->stop();
    scenario::expectNothingLeft(*server);
}

INSTANTIATE_TEST_SUITE_P(
    Contents, BadAttribute,
    testing::Combine(testing::Values(Attribute{"Empty", "", false}, Attribute{"NoNewline", "0", false},
                                     Attribute{"Huge", std::string(200000, 'A'), false},
                                     Attribute{"Binary", std::string("\x01\xff\0\x80%n%s\n", 9), false},
                                     Attribute{"Unreadable", "", true}),
                     testing::Values("vendor", "model", "rev", "type")),
    [](const auto &testInfo) {
        return std::string(std::get<0>(testInfo.param).name) + "_" + std::get<1>(testInfo.param);
    });

// A machine of three disks whose second has a fault.
std::string machineWithFault(const json &fault)
{
    json description = machines::disks(3);
    machines::deviceAt(description, 1)["faults"] = json::array({fault});
    return machines::text(description);
}

TEST_F(BadInput, FailedIdentityKeepsTheLastGoodState)
{
    Server server;
    EXPECT_EQ(server->enumInstances("TAV_StorageHardDisk").instances.size(), 3U);
    const std::string good = machine_.read(kStateFile);
    machine_.change(machineWithFault({{"on", "identity"}, {"errno", "EIO"}}));
    const Reply failing = server->enumInstances("TAV_StorageHardDisk");
    EXPECT_EQ(failing.rc, 1);
    EXPECT_EQ(failing.message, "strgGetInstance() FAILED");
    EXPECT_EQ(machine_.read(kStateFile), good) << "nothing is published from half a collection";
    machine_.change(machines::ofDisks(3));
    EXPECT_EQ(server->enumInstances("TAV_StorageHardDisk").instances.size(), 3U);
    server->stop();
    scenario::expectNothingLeft(*server);
}

TEST_F(BadInput, FailedFirstCollectionIsReportedAndRetried)
{
    machine_.change(machineWithFault({{"on", "identity"}, {"errno", "EIO"}}));
    Server server;
    const Reply failing = server->getInstance("TAV_StorageConfig");
    EXPECT_EQ(failing.rc, 1);
    EXPECT_EQ(failing.message, "strgInitProvider() Failure!!");
    machine_.change(machines::ofDisks(3));
    EXPECT_EQ(server->enumInstances("TAV_StorageHardDisk").instances.size(), 3U);
    server->stop();
    scenario::expectNothingLeft(*server);
}

TEST_F(BadInput, DiskWithFailedInquiryIsPlainScsi)
{
    for (const json &fault :
         {json{{"on", "inquiry"}, {"errno", "EIO"}}, json{{"on", "inquiry"}, {"hostStatus", 3}},
          json{{"on", "inquiry"}, {"driverStatus", 6}}, json{{"on", "identify"}, {"hostStatus", 7}}}) {
        machine_.change(machineWithFault(fault));
        EXPECT_EQ(disksSeen(), 3U) << fault;
    }
}

TEST_F(BadInput, AbsurdGeometryAndSizesAreSurvived)
{
    const std::pair<json, const char *> sizes[] = {
        {json{{"sectors", 0}}, "no sectors"},
        {json{{"sectors", UINT64_MAX / 512}}, "more than can be"},
        {json{{"sectorSize", 1}}, "sectors of one byte"},
        {json{{"geometry", {{"heads", 0}, {"sectors", 0}, {"cylinders", 0}}}}, "no geometry"},
        {json{{"geometry", {{"heads", 255}, {"sectors", 255}, {"cylinders", 65535}}}}, "the largest"}};
    for (const auto &[change, what] : sizes) {
        json description = machines::disks(2);
        machines::deviceAt(description, 1).update(change);
        machine_.change(machines::text(description));
        Server server;
        const Reply reply = server->enumInstances("TAV_StorageHardDisk");
        EXPECT_TRUE(reply.ok() || reply.rc == 1) << what << ": " << reply.message;
        server->stop();
        scenario::expectNothingLeft(*server);
        machine_.remove(kStateFile);
    }
}

TEST_F(BadInput, StateFileThatCannotBeReplacedIsReported)
{
    Server server;
    ASSERT_TRUE(server->enumInstances("TAV_StorageHardDisk").ok());
    machine_.remove(kStateFile);
    machine_.makeDirectory(kStateFile);
    const Reply set =
        server->invokeMethod("TAV_StorageConfig", "SetMonitorCycle", {{"MonitorCycle", broker::Value::text("300")}});
    EXPECT_EQ(set.rc, 1);
    EXPECT_EQ(set.message, "Storage-Update FAILED");
    machine_.remove(kStateFile);
    EXPECT_TRUE(
        server->invokeMethod("TAV_StorageConfig", "SetMonitorCycle", {{"MonitorCycle", broker::Value::text("300")}})
            .ok());
    EXPECT_TRUE(machine_.exists(kStateFile));
}

} // namespace

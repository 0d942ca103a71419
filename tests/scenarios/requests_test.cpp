// SPDX-License-Identifier: Apache-2.0
// Requests of clients and their answers, through the shared object as it ships.
#include "scenarios/scenario.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <ctime>
#include <map>

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

// ---- TAV_StorageDisk ----

constexpr const char *kDisk = "TAV_StorageDisk";

// An example machine with a text of options.inf, and with the schema loaded: the broker checks names and types.
class EveryDisk {
public:
    EveryDisk(const std::string &name, const std::string &options) : machine(described(name, options))
    {
        EXPECT_EQ(server->addSchema(sim::Machine::readFile(TAV_SOURCE_DIR "/schema/TAV_Storage.mof")), "");
    }
    // The properties of each disk by its kernel name; NULL where it does not report one.
    nlohmann::json byName()
    {
        nlohmann::json found;
        const broker::Reply reply = server->enumInstances(kDisk);
        EXPECT_TRUE(reply.ok()) << reply.message;
        EXPECT_TRUE(reply.done);
        for (const broker::Instance &instance : reply.instances) {
            nlohmann::json &disk = found[instance.find("KernelName")->toString()];
            for (const broker::NamedValue &property : instance.properties) {
                disk[property.name] =
                    property.value.isNull() ? nlohmann::json() : nlohmann::json(property.value.toString());
            }
        }
        return found;
    }
    static std::string described(const std::string &name, const std::string &options)
    {
        nlohmann::json machine = nlohmann::json::parse(scenario::exampleMachine(name));
        machine["files"]["options.inf"] = options;
        return machine.dump();
    }

    sim::Machine machine;
    Server server;
};

TEST(EveryDiskClass, HasEachPropertyOfTheDisksOfAMixedMachine)
{
    EveryDisk mixed("mixed", "all\n");
    EXPECT_TRUE(mixed.server->getInstance("TAV_StorageConfig").ok()); // builds the inventory, for HardDiskIndex
    const nlohmann::json disks = mixed.byName();
    ASSERT_EQ(disks.size(), 10U);
    const nlohmann::json expectedNvme = {
        {"DiskID", "eui.0025388b21001a2b00253858a0b1c2d3"},
        {"DiskIDSource", "1"},
        {"Transport", "4"},
        {"KernelName", "nvme0n1"},
        {"PathCount", "1"},
        {"Address", "0000:01:00.0"},
        {"Adapter", "0000:01:00.0"},
        {"Bay", nullptr},
        {"Vendor", nullptr},
        {"Model", "HALDEN N4 2TB"},
        {"SerialNumber", "HN4200117"},
        {"FirmwareRevision", "HN402"},
        {"NVMeNamespace", "1"},
        {"SizeBytes", "1600321314816"},
        {"LogicalBlockBytes", "4096"},
        {"PhysicalBlockBytes", "4096"},
        {"Rotational", "false"},
        {"RotationsPerMinute", nullptr},
        {"PowerState", "1"},
        {"HealthState", "1"},
        {"HealthSource", "NVMe health log"},
        {"HealthReason", "reports no warning"},
        {"EnduranceUsedPercent", "12"},
        {"SparePercent", "100"},
        {"TemperatureCelsius", "43"},
        {"PowerOnHours", "9120"},
        {"PowerCycles", "58"},
        {"MediaErrors", "0"},
        {"ReallocatedSectors", nullptr},
        {"PendingSectors", nullptr},
        {"BytesRead", "39542274048000"},
        {"BytesWritten", "21442625024000"},
        {"HardDiskIndex", nullptr},
    };
    nlohmann::json nvme = disks["nvme0n1"];
    for (const char *time : {"HealthSinceSeconds", "FirstSeenSeconds", "LastAskedSeconds"}) {
        const double age = static_cast<double>(std::time(nullptr)) - std::stod(nvme[time].get<std::string>());
        EXPECT_TRUE(age >= 0 && age < 600) << time;
        nvme.erase(time);
    }
    EXPECT_EQ(nvme, expectedNvme);
    EXPECT_EQ(disks["sda"]["HardDiskIndex"], "1");
    EXPECT_EQ(disks["vda"]["DiskID"], "serial.virtio.VOLUME-0007");
    EXPECT_EQ(disks["vda"]["Transport"], "5");
    EXPECT_EQ(disks["vda"]["HealthSource"], nullptr);
    EXPECT_EQ(disks["vda"]["LastAskedSeconds"], nullptr);
    EXPECT_EQ(disks["mmcblk0"]["DiskIDSource"], "2");
    EXPECT_EQ(disks["nvme1n1"]["HealthState"], "2");
    EXPECT_EQ(disks["sdd"]["Transport"], "2");
    EXPECT_EQ(disks["sdb"]["Transport"], "3");
    EXPECT_EQ(mixed.machine.unknownIoctls(), 0U);
    mixed.server->stop();
    scenario::expectNothingLeft(*mixed.server);
}

TEST(EveryDiskClass, HasEachDiskOfTodaysMachineWithItsHardDisk)
{
    EveryDisk today("today", "all\n");
    EXPECT_TRUE(today.server->getInstance("TAV_StorageConfig").ok()); // builds the inventory, for HardDiskIndex
    const nlohmann::json disks = today.byName();
    ASSERT_EQ(disks.size(), 28U);
    EXPECT_EQ(disks["sda"]["TemperatureCelsius"], "29");
    EXPECT_EQ(disks["sda"]["PowerOnHours"], "11444");
    EXPECT_EQ(disks["sda"]["ReallocatedSectors"], "0");
    EXPECT_EQ(disks["sdc"]["PowerState"], "3") << "standby";
    EXPECT_EQ(disks["sdc"]["HealthState"], "4") << "asleep";
    EXPECT_EQ(disks["sdc"]["Rotational"], "true");
    EXPECT_EQ(disks["sdk"]["HealthState"], "5") << "unreadable";
    EXPECT_EQ(disks["sdo"]["HealthState"], "3") << "failing";
    // By the serial number: the Index of a disk's device, of whose class the hard disk is.
    std::map<std::string, std::string> indexOfSerial;
    const broker::Reply devices = today.server->enumInstances("TAV_StorageSCSIDevice");
    for (const broker::Instance &device : devices.instances) {
        if (device.find("DeviceType")->toString() == "0") {
            indexOfSerial[device.find("SerialNumber")->toString()] = device.find("DeviceTypeIndex")->toString();
        }
    }
    EXPECT_EQ(indexOfSerial.size(), 27U);
    for (const auto &[name, disk] : disks.items()) {
        const auto found = indexOfSerial.find(disk["SerialNumber"].get<std::string>());
        EXPECT_EQ(disk["HardDiskIndex"],
                  found == indexOfSerial.end() ? nlohmann::json() : nlohmann::json(found->second))
            << name;
    }
    today.server->stop();
    scenario::expectNothingLeft(*today.server);
}

TEST(EveryDiskClass, AnswersEachKindOfRequest)
{
    EveryDisk mixed("mixed", "every-disk\n");
    const broker::Reply all = mixed.server->enumInstances(kDisk);
    ASSERT_EQ(all.instances.size(), 10U);
    const broker::Reply names = mixed.server->enumInstanceNames(kDisk);
    ASSERT_TRUE(names.ok()) << names.message;
    EXPECT_TRUE(names.done);
    ASSERT_EQ(names.instances.size(), 10U);
    for (size_t i = 0; i < all.instances.size(); ++i) {
        const std::string id = all.instances[i].find("DiskID")->toString();
        ASSERT_EQ(names.instances[i].keys.size(), 1U);
        EXPECT_EQ(names.instances[i].keys[0].name, "DiskID");
        EXPECT_EQ(names.instances[i].keys[0].value.toString(), id);
        const broker::Reply one = mixed.server->getInstance(kDisk, {{"DiskID", Value::text(id)}});
        ASSERT_EQ(one.instances.size(), 1U) << id << ": " << one.message;
        EXPECT_EQ(one.instances[0].find("KernelName")->toString(), all.instances[i].find("KernelName")->toString());
        EXPECT_EQ(one.instances[0].keys.size(), 1U);
    }
    const auto limited = mixed.server->enumInstances(kDisk, std::vector<std::string>{"model", "SizeBytes"});
    ASSERT_EQ(limited.instances.size(), 10U);
    EXPECT_EQ(limited.instances[1].find("Model")->toString(), "HALDEN N4 2TB");
    EXPECT_EQ(limited.instances[1].find("DiskID")->toString(), "eui.0025388b21001a2b00253858a0b1c2d3")
        << "the key passes every list";
    const Value *const unlisted = limited.instances[1].find("SerialNumber");
    EXPECT_TRUE(unlisted == nullptr || unlisted->isNull());

    for (const std::string id : {"none", "", "eui.0025388b21001a2b00253858a0b1c2d"}) {
        const broker::Reply reply = mixed.server->getInstance(kDisk, {{"DiskID", Value::text(id)}});
        EXPECT_EQ(reply.rc, 6) << id;
        EXPECT_EQ(reply.message, "NotFound DiskID");
    }
    const std::string tooLong = "eui.0025388b21001a2b00253858a0b1c2d3" + std::string(300, 'x');
    EXPECT_EQ(mixed.server->getInstance(kDisk, {{"DiskID", Value::text(tooLong)}}).rc, 6);
    EXPECT_EQ(mixed.server->getInstance(kDisk, {{"Index", Value::text("1")}}).rc, 1);
    for (const broker::Reply &reply :
         {mixed.server->createInstance(kDisk), mixed.server->modifyInstance(kDisk), mixed.server->deleteInstance(kDisk),
          mixed.server->execQuery(kDisk, "select * from TAV_StorageDisk")}) {
        EXPECT_EQ(reply.rc, 7);
        EXPECT_EQ(reply.message, "NOT_SUPPORTED");
    }
    EXPECT_EQ(mixed.server->invokeMethod(kDisk, "Any").message, "Generic Failure!!");
    mixed.server->stop();
    scenario::expectNothingLeft(*mixed.server);
}

TEST(EveryDiskClass, NeedsNoInventory)
{
    nlohmann::json machine = nlohmann::json::parse(EveryDisk::described("mixed", "every-disk\n"));
    machine["kernel"] = "6.12.117+deb12-amd64"; // without the line kernel-release the inventory refuses it
    const sim::Machine refused(machine.dump());
    Server server;
    EXPECT_EQ(server->enumInstances(kDisk).instances.size(), 10U);
    EXPECT_FALSE(refused.exists(kStateFile)) << "an inventory was made";
}

TEST(EveryDiskClass, IsThereAsSoonAndAsLongAsItsLineIs)
{
    EveryDisk mixed("mixed", "");
    const char *const file = "/opt/qlm/tavkit_sa/data/options.inf";
    EXPECT_EQ(mixed.server->enumInstances(kDisk).message, "Generic Failure!!");
    EXPECT_EQ(mixed.server->enumInstanceNames(kDisk).rc, 7);
    EXPECT_FALSE(mixed.machine.exists("/opt/qlm/tavkit_sa/data/tavstrgbook.dat"));
    mixed.machine.write(file, "every-disk\n");
    EXPECT_TRUE(mixed.server->enumInstanceNames(kDisk).ok());
    EXPECT_TRUE(mixed.server->enumInstances(kDisk).ok());
    EXPECT_TRUE(mixed.machine.exists("/opt/qlm/tavkit_sa/data/tavstrgbook.dat"));
    mixed.machine.remove(file);
    EXPECT_EQ(mixed.server->enumInstances(kDisk).message, "Generic Failure!!");
}

TEST(EveryDiskClass, TellsAMachineWithoutDisksFromOneThatShowsNone)
{
    const char *const withDrive = R"({"hosts": [{"driver": "ahci", "devices": [{"type": "cdrom"}]}],
                                      "files": {"options.inf": "every-disk"}})";
    sim::Machine machine(withDrive);
    Server server;
    broker::Reply reply = server->enumInstances(kDisk);
    EXPECT_EQ(reply.rc, 6);
    EXPECT_EQ(reply.message, "NotFound Data");
    EXPECT_EQ(server->getInstance(kDisk, {{"DiskID", Value::text("none")}}).message, "NotFound DiskID");
    server->stop();

    // A kernel without sysfs.
    machine.change(R"({"kernel": "2.4.20", "files": {"options.inf": "every-disk"}})");
    Server old;
    reply = old->enumInstances(kDisk);
    EXPECT_EQ(reply.rc, 1);
    EXPECT_EQ(reply.message, "/sys/block cannot be read");
}

} // namespace

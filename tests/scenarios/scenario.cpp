// SPDX-License-Identifier: Apache-2.0
#include "scenarios/scenario.h"

#include <gtest/gtest.h>

#include <stdexcept>

namespace scenario {

namespace {

// Segments that the provider created and did not remove, of whichever machine.
void expectNoSegments()
{
    EXPECT_EQ(sim::liveSegments(), 0) << "shared-memory segments are left";
}

nlohmann::json propertiesOf(const broker::Instance &instance)
{
    nlohmann::json properties;
    for (const broker::NamedValue &property : instance.properties) {
        properties[property.name] = property.value.toString();
    }
    return properties;
}

} // namespace

std::string providerFile()
{
    return TAV_BINARY_DIR "/lib/libTAVStorageProvider.so";
}

std::string exampleMachine(const std::string &name)
{
    return sim::Machine::readFile(TAV_SOURCE_DIR "/examples/machines/" + name + ".json");
}

const std::vector<std::string> &allClasses()
{
    static const std::vector<std::string> names = {
        "TAV_StorageThread",     "TAV_StorageConfig",        "TAV_StorageTotalNumber", "TAV_StorageController",
        "TAV_StorageSCSIDevice", "TAV_StorageIDEDevice",     "TAV_StorageHardDisk",    "TAV_StorageCDROM",
        "TAV_StorageTape",       "TAV_StorageOpticalMemory", "TAV_StorageMisc",        "TAV_StorageLifeSpan"};
    return names;
}

const std::vector<std::string> &indexedClasses()
{
    static const std::vector<std::string> names(allClasses().begin() + 3, allClasses().end());
    return names;
}

Server::Server(broker::Options options) : broker_(std::move(options))
{
    if (const std::string failure = broker_.load(providerFile()); !failure.empty()) {
        throw std::runtime_error(failure);
    }
}

Server::~Server()
{
    if (broker_.loaded()) {
        broker_.stop();
    }
}

nlohmann::json everythingOf(broker::Broker &broker)
{
    nlohmann::json everything;
    for (const std::string &name : allClasses()) {
        const broker::Reply reply = broker.enumInstances(name);
        nlohmann::json &entry = everything[name];
        entry = {{"rc", reply.rc}, {"message", reply.message}, {"instances", nlohmann::json::array()}};
        for (const broker::Instance &instance : reply.instances) {
            entry["instances"].push_back(propertiesOf(instance));
        }
    }
    return everything;
}

std::vector<uint64_t> totalsOf(broker::Broker &broker)
{
    const broker::Reply reply = broker.getInstance("TAV_StorageTotalNumber");
    std::vector<uint64_t> totals;
    if (reply.instances.size() == 1) {
        for (const char *const name :
             {"ControllerTotalNumber", "SCSIDeviceTotalNumber", "IDEDeviceTotalNumber", "HardDiskTotalNumber",
              "CDROMTotalNumber", "TapeTotalNumber", "OpticalMemoryTotalNumber", "MiscTotalNumber"}) {
            const broker::Value *const value = reply.instances[0].find(name);
            totals.push_back(value == nullptr ? 0 : std::stoull(value->toString()));
        }
    }
    return totals;
}

void expectNothingLeft(broker::Broker &broker)
{
    const broker::Accounting accounting = broker.accounting();
    EXPECT_TRUE(accounting.clean()) << "broker objects: " << testing::PrintToString(accounting.notes);
    EXPECT_EQ(sim::liveBlocks(), 0) << "memory is left";
    EXPECT_EQ(sim::liveDescriptors(), 0) << "descriptors are left open";
    expectNoSegments();
}

} // namespace scenario

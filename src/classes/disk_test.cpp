// SPDX-License-Identifier: Apache-2.0
// The handlers of TAV_StorageDisk where the broker fails, and the texts that they publish.
#include "classes/classes.h"
#include "classes/disk_properties.h"
#include "disks/current/current.h"
#include "support/store_fixture.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <set>
#include <string>

using namespace tavstrg;
using broker::Reply;
using broker::Request;
using broker::Value;

namespace {

constexpr const char *kMachine = R"({"hosts": [{"driver": "ahci", "devices": [
    {"ata": true, "model": "MODEL", "serial": "A\u0001B\u00e9 C"}]}]})";

class EveryDiskHandlers : public StoreTest {
protected:
    EveryDiskHandlers() : StoreTest(kMachine) { disks::forgetCurrentDisks(); }
    ~EveryDiskHandlers() override { disks::forgetCurrentDisks(); }

    Reply call(InstanceHandler &handler, const std::vector<broker::NamedValue> &keys = {})
    {
        const Request own(broker, kDiskClass, keys);
        const CInfo info = {broker.handle(), own.context()};
        return own.reply(handler(&info, own.result(), own.path(), own.properties()));
    }
};

TEST_F(EveryDiskHandlers, RefuseWhatTheBrokerRefuses)
{
    const std::string id = call(TAV_STRGDiskEnumInstances).instances.at(0).find(kDiskKey)->toString();
    for (const char *slot : {"getNameSpace", "newObjectPath", "newInstance", "setPropertyFilter", "returnInstance"}) {
        const bool built = std::string(slot) != "returnInstance";
        const char *const message = built ? "buildDisk() FAILED" : "CMReturnInstance() FAILED";
        broker.failCall(slot, 1);
        EXPECT_EQ(call(TAV_STRGDiskEnumInstances).message, message) << slot;
        broker.failCall(slot, 1);
        EXPECT_EQ(call(TAV_STRGDiskGetInstance, {{kDiskKey, Value::text(id)}}).message, message) << slot;
    }
    broker.failCall("newObjectPath", 1, broker::Broker::kNullHandle);
    EXPECT_EQ(call(TAV_STRGDiskEnumInstanceNames).message, "CMNewObjectPath() FAILED");
    broker.failCall("returnObjectPath", 1);
    EXPECT_EQ(call(TAV_STRGDiskEnumInstanceNames).message, "CMReturnObjectPath() FAILED");
    broker.failCall("getKey", 1);
    EXPECT_EQ(call(TAV_STRGDiskGetInstance, {{kDiskKey, Value::text(id)}}).message, "getKeyText() FAILED");
    broker.failCall("", 0);
    EXPECT_EQ(call(TAV_STRGDiskEnumInstances).instances.size(), 1U);
    EXPECT_TRUE(broker.accounting().clean()) << testing::PrintToString(broker.accounting().notes);
}

TEST_F(EveryDiskHandlers, NeedInformationAboutTheCall)
{
    const Request own(broker, kDiskClass);
    EXPECT_EQ(TAV_STRGDiskEnumInstances(nullptr, own.result(), own.path(), nullptr).rc, CMPI_RC_ERR_FAILED);
    EXPECT_TRUE(trace->has(kFailure, "param(cInfo) Failure!!"));
}

TEST_F(EveryDiskHandlers, PublishPrintableTexts)
{
    const Reply reply = call(TAV_STRGDiskEnumInstances);
    ASSERT_EQ(reply.instances.size(), 1U);
    for (const broker::NamedValue &property : reply.instances[0].properties) {
        for (const char c : property.value.toString()) {
            EXPECT_TRUE(c >= ' ' && c <= '~') << property.name;
        }
    }
    EXPECT_THAT(reply.instances[0].find("SerialNumber")->toString(), testing::StartsWith("A"));
}

TEST(DiskProperties, OfADiskOfWhichNothingIsKnownAreNull)
{
    const disks::Disk nothing{};
    std::set<std::string> set;
    for (const DiskProperty &property : diskProperties()) {
        DiskValue value = {};
        if (property.read({nothing, 0}, value)) {
            set.insert(property.name);
        }
    }
    EXPECT_EQ(set, (std::set<std::string>{"DiskIDSource", "Transport", "PathCount", "PowerState", "HealthState"}));
}

TEST(DiskProperties, OfZeroAreNotNull)
{
    disks::Disk disk{};
    disk.readings.temperatureCelsius.set(0);
    disk.readings.mediaErrors.set(0);
    disk.rotational.set(false);
    int known = 0;
    for (const DiskProperty &property : diskProperties()) {
        DiskValue value = {};
        const std::string name = property.name;
        if (name == "TemperatureCelsius" || name == "MediaErrors" || name == "Rotational") {
            known += property.read({disk, 0}, value) ? 1 : 0;
        }
    }
    EXPECT_EQ(known, 3);
}

} // namespace

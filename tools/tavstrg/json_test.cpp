// SPDX-License-Identifier: Apache-2.0
#include "tavstrg/json.h"

#include "support/tool_instances.h"
#include "tavstrg/json_document.h"

#include <gmock/gmock.h>
#include <nlohmann/json.hpp>

#include <unistd.h>

namespace {

using namespace tool;
using nlohmann::json;
using testing_support::instance;

// Without what differs from run to run.
json parsed(const std::string &text)
{
    json document = json::parse(text);
    for (const char *field : {"toolVersion", "hostName", "time"}) {
        EXPECT_TRUE(document.contains(field)) << field << ": " << text;
        document.erase(field);
    }
    return document;
}

TEST(InventoryJson, HoldsTheWholeTreeUnderItsVersion)
{
    Inventory inventory;
    inventory.machine = "sample.json";
    Controller controller;
    controller.index = 1;
    controller.model = "SCSI Controller";
    controller.driver = "ahci";
    controller.driverVersion = "Not Supported";
    Device disk;
    disk.index = 2;
    disk.deviceTypeIndex = 1;
    disk.controllerIndex = 1;
    disk.targetId = 4;
    disk.vendor = "ATA     ";
    disk.model = " M ";
    disk.firmwareRevision = "F";
    disk.serialNumber = "S";
    disk.disk = HardDisk{1, 0, 2, 10, 255, 63, 78, -1, LifeSpan{1, 5}};
    disk.host = 7;
    disk.node = "sdb";
    controller.devices = {disk};
    inventory.controllers = {controller};
    Device cdrom;
    cdrom.interfaceType = 1;
    cdrom.index = 1;
    cdrom.deviceType = 3;
    cdrom.deviceTypeIndex = 1;
    cdrom.ideConfiguration = 2;
    cdrom.firmwareRevision = "Not Supported";
    cdrom.serialNumber = "Unknown";
    inventory.devicesWithoutController = {cdrom};
    inventory.totals = {1, 2, 3, 4, 5, 6, 7, 8};
    inventory.monitoring = {60, 10, 3600, 61, 1, true};
    inventory.collection = {100.5, 0.25};

    const json expected = json::parse(R"({
      "formatVersion": 1, "command": "show",
      "machine": "sample.json",
      "collection": {"time": "1970-01-01T00:01:40.500Z", "durationSeconds": 0.25}, "explanation": null,
      "controllers": [{
        "index": 1, "interface": "SCSI", "hostNumber": null, "model": "SCSI Controller",
        "driver": "ahci", "driverVersion": null, "interrupt": null,
        "devices": [{
          "interface": "SCSI", "index": 2, "type": {"code": 0, "text": "hard disk"}, "typeIndex": 1,
          "node": "/dev/sdb", "hostNumber": 7, "address": {"bus": 0, "target": 4, "lun": 0}, "position": null,
          "vendor": "ATA", "model": "M", "firmwareRevision": "F", "serialNumber": "S",
          "hardDisk": {
            "index": 1, "capacityMiB": 78, "cylinders": 10, "heads": 255, "sectorsPerTrack": 63,
            "smart": {"code": -1, "state": "notReadable", "text": "not readable"},
            "lifeSpan": {"index": 1, "level": 5, "text": "level 5 of 5, most endurance left"}
          }
        }]
      }],
      "devicesWithoutController": [{
        "interface": "IDE", "index": 1, "type": {"code": 3, "text": "CD-ROM drive"}, "typeIndex": 1,
        "node": null, "hostNumber": null, "address": null, "position": "master", "vendor": null,
        "model": null, "firmwareRevision": null, "serialNumber": null, "hardDisk": null
      }],
      "disksWithoutDevice": [],
      "totals": {"controllers": 1, "scsiDevices": 2, "ideDevices": 3, "hardDisks": 4, "cdromDrives": 5,
                 "tapeDrives": 6, "opticalMemories": 7, "otherDevices": 8},
      "health": {"disks": 1, "good": 0, "failurePredicted": 0, "statusNotReadable": 1, "notAsked": 0, "notSupported": 0,
                 "unconfirmed": 0, "leastEndurance": 0, "littleEndurance": 0,
                 "lifeSpanNotRead": 0},
      "monitoring": {"running": true, "cycle": 60, "cycleMin": 10, "cycleMax": 3600, "cycleDefault": 61, "smartMode": 1}
    })");
    EXPECT_EQ(parsed(inventoryJson(inventory)), expected) << inventoryJson(inventory);
}

TEST(InventoryJson, TheRealMachineHasNoNameAndAKnownInterruptIsANumber)
{
    Inventory inventory;
    inventory.controllers.resize(1);
    inventory.controllers[0].interruptNumber = 14;
    inventory.disksWithoutDevice.resize(1);
    const json shown = json::parse(inventoryJson(inventory));
    EXPECT_TRUE(shown["machine"].is_null());
    EXPECT_EQ(shown["controllers"][0]["interrupt"], 14);
    EXPECT_EQ(shown["disksWithoutDevice"].size(), 1U);
    EXPECT_TRUE(shown["disksWithoutDevice"][0].at("lifeSpan").is_null());
}

TEST(InventoryJson, BeginsWithVersionAndCommand)
{
    EXPECT_EQ(inventoryJson({}).rfind("{\n  \"formatVersion\": 1,\n  \"command\": \"show\",\n", 0), 0U)
        << inventoryJson({});
}

TEST(Document, SaysByWhomWhereAndWhenItWasMade)
{
    const json made = json::parse(written(document("show")));
    EXPECT_EQ(made["toolVersion"], TAV_VERSION);
    char name[256] = {};
    gethostname(name, sizeof name - 1);
    EXPECT_EQ(made["hostName"], name);
    EXPECT_THAT(made["time"].get<std::string>(),
                testing::MatchesRegex("[0-9]{4}-[0-9]{2}-[0-9]{2}T[0-9]{2}:[0-9]{2}:[0-9]{2}\\.[0-9]{3}Z"));
}

// In the record all of these are 0.
TEST(InventoryJson, HasAStateForEachMeaningOfSmartStatus0)
{
    for (const auto &[reading, state] : {std::pair(Smart::good, "good"),
                                         {Smart::notAsked, "notAsked"},
                                         {Smart::notSupported, "notSupported"},
                                         {Smart::notReadable, "notReadable"}}) {
        Inventory inventory;
        inventory.disksWithoutDevice.resize(1);
        inventory.disksWithoutDevice[0].reading = reading;
        EXPECT_EQ(json::parse(inventoryJson(inventory))["disksWithoutDevice"][0]["smart"]["state"], state);
    }
}

TEST(InventoryJson, BytesThatAreNoTextDoNotBreakTheDocument)
{
    Inventory inventory;
    inventory.controllers.resize(1);
    inventory.controllers[0].model = "bad\xff\x03";
    EXPECT_EQ(json::parse(inventoryJson(inventory))["controllers"][0]["model"], "bad\xef\xbf\xbd\x03");
}

TEST(InstancesJson, KeepsTypesAndNull)
{
    broker::Instance one = instance("C", {{"Index", "1"}, {"Minus", -1}, {"Number", 7}});
    one.properties.push_back({"Nothing", {}});
    one.properties.push_back({"Flag", {CMPI_boolean, true}});
    const json expected = json::parse(R"({"formatVersion": 1, "command": "enum", "class": "C", "instances":
        [{"Index": "1", "Minus": -1, "Number": 7, "Nothing": null, "Flag": true}]})");
    EXPECT_EQ(parsed(instancesJson("C", {one})), expected);
    EXPECT_EQ(json::parse(instancesJson("C", {}))["instances"], json::array());
}

TEST(InstanceJson, IsOneObject)
{
    EXPECT_EQ(parsed(instanceJson("C", instance("C", {{"Index", "2"}}))),
              json::parse(R"({"formatVersion": 1, "command": "get", "class": "C", "instance": {"Index": "2"}})"));
}

TEST(ReturnValuesJson, IsAListThatMayBeEmpty)
{
    EXPECT_EQ(
        parsed(returnValuesJson("C", "M", {})),
        json::parse(R"({"formatVersion": 1, "command": "call", "class": "C", "method": "M", "returnValues": []})"));
    EXPECT_EQ(json::parse(returnValuesJson("C", "M", {broker::Value::number(1, CMPI_uint32)}))["returnValues"],
              json::parse("[1]"));
}

TEST(CatalogueJson, DescribesEachClass)
{
    const json classes = json::parse(catalogueJson(catalogue()))["classes"];
    ASSERT_EQ(classes.size(), 13U);
    EXPECT_EQ(classes[0], json::parse(R"({
        "name": "TAV_StorageConfig", "oneInstance": true,
        "properties": [
          {"name": "MonitorCycle", "type": "uint16", "key": false},
          {"name": "MonitorCycleMin", "type": "uint16", "key": false},
          {"name": "MonitorCycleMax", "type": "uint16", "key": false},
          {"name": "MonitorCycleDefault", "type": "uint16", "key": false},
          {"name": "HardDiskSmartMode", "type": "sint16", "key": false}],
        "methods": [{"name": "SetMonitorCycle", "arguments": ["MonitorCycle"]},
                    {"name": "SetHardDiskSmartMode", "arguments": ["HardDiskSmartMode"]}]})"));
    EXPECT_EQ(classes[10]["properties"][0], json::parse(R"({"name": "Index", "type": "string", "key": true})"));
}

TEST(FailureJson, IsOneLineWithAMessageForEachOfTheErrors)
{
    const std::string text = failureJson("check", 1, 0, "a:1: skipped\nb:2: skipped");
    EXPECT_EQ(text.find('\n'), text.size() - 1);
    EXPECT_EQ(parsed(text), json::parse(R"({"formatVersion":1,"command":"check","failure":)"
                                        R"({"exitStatus":1,"cimStatus":null,)"
                                        R"("messages":["a:1: skipped","b:2: skipped"]}})"));
    EXPECT_EQ(json::parse(failureJson("get", 1, 6, "x"))["failure"]["cimStatus"], 6);
}

TEST(NoteJson, IsOneLine)
{
    const std::string text = noteJson("watch", "line\nend");
    EXPECT_EQ(text.find('\n'), text.size() - 1);
    EXPECT_EQ(parsed(text), json::parse(R"({"formatVersion":1,"command":"watch","note":"line\nend"})"));
}

} // namespace

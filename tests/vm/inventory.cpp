// SPDX-License-Identifier: Apache-2.0
#include "vm/inventory.h"

#include "vm/checks.h"

#include <algorithm>
#include <cstdio>
#include <functional>

namespace vm {
namespace {

using broker::Instance;
using Key = std::function<std::string(const Instance &)>;

struct Kind {
    int deviceType;
    Rows Inventory::*rows;
};

// By the name that lsscsi has for it.
Kind kindOf(const std::string &kind)
{
    if (kind == "disk") {
        return {0, &Inventory::hardDisks};
    }
    if (kind == "cd/dvd") {
        return {1, &Inventory::cdroms};
    }
    if (kind == "tape") {
        return {2, &Inventory::tapes};
    }
    if (kind == "optical") {
        return {3, &Inventory::opticalMemories};
    }
    return {4, &Inventory::misc};
}

std::string text(const Instance &instance, const std::string &property)
{
    const broker::Value *const value = instance.find(property);
    return value == nullptr ? "(not there)" : value->toString();
}

// What an ATA disk's serial number runs on into is no part of it: the blanks after it and the next word of the
// identity.
std::string withoutTail(std::string serial)
{
    const auto control = std::find_if(serial.begin(), serial.end(), [](unsigned char c) { return c < 0x20; });
    serial.erase(control, serial.end());
    return serial.erase(serial.find_last_not_of(' ') + 1);
}

bool isManaged(const Facts &facts, const std::string &driver)
{
    return std::find(facts.managed.begin(), facts.managed.end(), driver) != facts.managed.end();
}

void addControllers(Inventory &inventory, std::map<int, std::string> &indexOfHost, const Facts &facts)
{
    for (const auto &[host, driver] : facts.drivers) {
        if (isManaged(facts, driver)) {
            const std::string index = std::to_string(indexOfHost.size() + 1);
            indexOfHost[host] = index;
            inventory.controllers[index] = {{"Index", index},
                                            {"InterfaceType", "0"},
                                            {"Model", "SCSI Controller"},
                                            {"InterruptNumber", "65535"},
                                            {"Driver", driver},
                                            {"DriverVersion", "Not Supported"}};
        }
    }
}

std::string smartStatusOf(const std::string &health)
{
    if (health == "none") {
        return "-1";
    }
    return health == "PASSED" ? "0" : "not " + health;
}

// The kernel's geometry with as many cylinders as fit the disk; the capacity in MiB is that of whole cylinders.
void addHardDisk(Row &row, const Device &device)
{
    const uint64_t sector = device.number("sector");
    const uint64_t track = device.number("heads") * device.number("sectors");
    const uint64_t cylinders = track == 0 || sector == 0 ? 0 : device.number("bytes") / sector / track;
    row["CylindersPerUnit"] = std::to_string(cylinders);
    row["TracksPerCylinder"] = device["heads"];
    row["SectorsPerTrack"] = device["sectors"];
    row["Capacity"] = std::to_string(cylinders * track * sector >> 20);
    row["SmartStatus"] = smartStatusOf(device["health"]);
    row["PNPDeviceID"] = "";
}

void addLifeSpan(Inventory &inventory, const Device &device, const std::string &diskIndex)
{
    const int level = enduranceLevel(device.number("attribute-" + kEnduranceAttribute));
    inventory.lifeSpans[diskIndex] = {{"Index", std::to_string(inventory.lifeSpans.size() + 1)},
                                      {"HDDIndex", diskIndex},
                                      {"EnduranceRemaining", std::to_string(level)}};
}

void addDevice(Inventory &inventory, const Device &device, const std::string &controller)
{
    const Kind kind = kindOf(device["kind"]);
    Rows &rows = inventory.*kind.rows;
    const std::string index = std::to_string(inventory.devices.size() + 1);
    const std::string indexOfKind = std::to_string(rows.size() + 1);
    int channel = 0;
    int target = 0;
    int lun = 0;
    std::sscanf(device.address.c_str(), "%*d:%d:%d:%d", &channel, &target, &lun);
    inventory.devices[device.address] = {{"Index", index},
                                         {"DeviceType", std::to_string(kind.deviceType)},
                                         {"DeviceTypeIndex", indexOfKind},
                                         {"ControllerIndex", controller},
                                         {"Bus", std::to_string(channel)},
                                         {"TargetID", std::to_string(target)},
                                         {"LUN", std::to_string(lun)},
                                         {"Vendor", device["vendor"]},
                                         {"Model", device["model"]},
                                         {"FirmwareRevision", device["revision"]},
                                         {"SerialNumber", device["serial"]}};
    Row &row = rows[device.address] = {{"Index", indexOfKind}, {"InterfaceType", "0"}, {"InterfaceTypeIndex", index}};
    if (kind.deviceType == 0) {
        addHardDisk(row, device);
        if (device["model"] == kEnduranceModel) {
            addLifeSpan(inventory, device, indexOfKind);
        }
    }
}

void compareRow(const std::string &label, const Row &expected, const Instance &instance)
{
    for (const auto &[property, value] : expected) {
        const std::string got = text(instance, property);
        check(label + " " + property, value, property == "SerialNumber" ? withoutTail(got) : got);
    }
}

void compareClass(broker::Broker &broker, const std::string &occasion, const std::string &className,
                  const Rows &expected, const Key &key)
{
    const broker::Reply reply = broker.enumInstances("TAV_Storage" + className);
    const std::string label = occasion + ": " + className;
    check(label + " answers", expected.empty() ? "NotFound Data" : "", reply.message);
    check(label + " number", expected.size(), reply.instances.size());
    for (const auto &entry : expected) {
        const std::string &name = entry.first;
        const auto found = std::find_if(reply.instances.begin(), reply.instances.end(),
                                        [&](const Instance &instance) { return key(instance) == name; });
        if (found == reply.instances.end()) {
            check(label + " " + name + " is there", true, false);
        } else {
            compareRow(label + " " + name, entry.second, *found);
        }
    }
}

void compareTotals(broker::Broker &broker, const std::string &occasion, const Inventory &expected)
{
    const broker::Reply reply = broker.getInstance("TAV_StorageTotalNumber");
    const Instance none;
    const Instance &totals = reply.instances.empty() ? none : reply.instances.front();
    const auto number = [](const Rows &rows) { return std::to_string(rows.size()); };
    compareRow(occasion + ": TotalNumber",
               {{"ControllerTotalNumber", number(expected.controllers)},
                {"SCSIDeviceTotalNumber", number(expected.devices)},
                {"IDEDeviceTotalNumber", "0"},
                {"HardDiskTotalNumber", number(expected.hardDisks)},
                {"CDROMTotalNumber", number(expected.cdroms)},
                {"TapeTotalNumber", number(expected.tapes)},
                {"OpticalMemoryTotalNumber", number(expected.opticalMemories)},
                {"MiscTotalNumber", number(expected.misc)}},
               totals);
}

// The hosts' numbers in the order of the controllers.
std::vector<int> managedHosts(const Facts &facts)
{
    std::vector<int> hosts;
    for (const auto &[host, driver] : facts.drivers) {
        if (isManaged(facts, driver)) {
            hosts.push_back(host);
        }
    }
    return hosts;
}

// "host:channel:target:lun" of a SCSI device instance.
std::string addressOf(const Instance &device, const std::vector<int> &hosts)
{
    const size_t controller = std::strtoull(text(device, "ControllerIndex").c_str(), nullptr, 10);
    const std::string host = controller - 1 < hosts.size() ? std::to_string(hosts[controller - 1]) : "?";
    return host + ":" + text(device, "Bus") + ":" + text(device, "TargetID") + ":" + text(device, "LUN");
}

} // namespace

Inventory expectedInventory(const Facts &facts)
{
    Inventory inventory;
    std::map<int, std::string> indexOfHost;
    addControllers(inventory, indexOfHost, facts);
    for (const Device &device : facts.devices) {
        const auto controller = indexOfHost.find(device.host);
        if (controller != indexOfHost.end() && !device["model"].starts_with(kUnwatchedModel)) {
            addDevice(inventory, device, controller->second);
        }
    }
    return inventory;
}

void compareInventory(broker::Broker &broker, const Facts &facts, const std::string &occasion)
{
    const Inventory expected = expectedInventory(facts);
    const std::vector<int> hosts = managedHosts(facts);
    const auto byIndex = [](const Instance &instance) { return text(instance, "Index"); };
    const auto byAddress = [&](const Instance &instance) { return addressOf(instance, hosts); };
    std::map<std::string, std::string> addresses; // by Index of the SCSI device
    for (const Instance &device : broker.enumInstances("TAV_StorageSCSIDevice").instances) {
        addresses[text(device, "Index")] = byAddress(device);
    }
    const auto bySCSIDevice = [&](const Instance &instance) { return addresses[text(instance, "InterfaceTypeIndex")]; };
    const auto byHardDisk = [](const Instance &instance) { return text(instance, "HDDIndex"); };
    compareClass(broker, occasion, "Controller", expected.controllers, byIndex);
    compareClass(broker, occasion, "SCSIDevice", expected.devices, byAddress);
    compareClass(broker, occasion, "IDEDevice", {}, byIndex);
    compareClass(broker, occasion, "HardDisk", expected.hardDisks, bySCSIDevice);
    compareClass(broker, occasion, "CDROM", expected.cdroms, bySCSIDevice);
    compareClass(broker, occasion, "Tape", expected.tapes, bySCSIDevice);
    compareClass(broker, occasion, "OpticalMemory", expected.opticalMemories, bySCSIDevice);
    compareClass(broker, occasion, "Misc", expected.misc, bySCSIDevice);
    compareClass(broker, occasion, "LifeSpan", expected.lifeSpans, byHardDisk);
    compareTotals(broker, occasion, expected);
}

size_t hardDisks(broker::Broker &broker)
{
    return broker.enumInstances("TAV_StorageHardDisk").instances.size();
}

bool hasModel(broker::Broker &broker, const std::string &model)
{
    const auto devices = broker.enumInstances("TAV_StorageSCSIDevice").instances;
    return std::any_of(devices.begin(), devices.end(),
                       [&](const Instance &device) { return text(device, "Model").starts_with(model); });
}

} // namespace vm

// SPDX-License-Identifier: Apache-2.0
#include "tavstrg/inventory.h"

#include <algorithm>
#include <charconv>
#include <tuple>

namespace tool {
namespace {

using broker::Instance;

unsigned unsignedOf(const Instance &instance, const std::string &property)
{
    return static_cast<unsigned>(numberOf(instance, property));
}

int intOf(const Instance &instance, const std::string &property)
{
    return static_cast<int>(numberOf(instance, property));
}

const std::vector<Instance> &instancesOf(const Answers &answers, const std::string &className)
{
    static const std::vector<Instance> none;
    const auto found = answers.find(className);
    return found == answers.end() ? none : found->second;
}

Controller makeController(const Instance &instance)
{
    Controller controller;
    controller.index = unsignedOf(instance, "Index");
    controller.interfaceType = intOf(instance, "InterfaceType");
    controller.model = textOf(instance, "Model");
    controller.interruptNumber = unsignedOf(instance, "InterruptNumber");
    controller.driver = textOf(instance, "Driver");
    controller.driverVersion = textOf(instance, "DriverVersion");
    return controller;
}

Device makeDevice(const Instance &instance, int interfaceType)
{
    Device device;
    device.interfaceType = interfaceType;
    device.index = unsignedOf(instance, "Index");
    device.deviceType = intOf(instance, "DeviceType");
    device.deviceTypeIndex = unsignedOf(instance, "DeviceTypeIndex");
    device.controllerIndex = unsignedOf(instance, "ControllerIndex");
    if (interfaceType == kIde) {
        device.ideConfiguration = intOf(instance, "IDEConfiguration");
    } else {
        device.bus = unsignedOf(instance, "Bus");
        device.targetId = unsignedOf(instance, "TargetID");
        device.lun = unsignedOf(instance, "LUN");
        device.vendor = textOf(instance, "Vendor");
    }
    device.model = textOf(instance, "Model");
    device.firmwareRevision = textOf(instance, "FirmwareRevision");
    device.serialNumber = textOf(instance, "SerialNumber");
    return device;
}

HardDisk makeDisk(const Instance &instance)
{
    HardDisk disk;
    disk.index = unsignedOf(instance, "Index");
    disk.interfaceType = intOf(instance, "InterfaceType");
    disk.interfaceTypeIndex = unsignedOf(instance, "InterfaceTypeIndex");
    disk.cylinders = unsignedOf(instance, "CylindersPerUnit");
    disk.heads = unsignedOf(instance, "TracksPerCylinder");
    disk.sectorsPerTrack = unsignedOf(instance, "SectorsPerTrack");
    disk.capacity = unsignedOf(instance, "Capacity");
    disk.smartStatus = intOf(instance, "SmartStatus");
    return disk;
}

std::vector<Device> makeDevices(const Answers &answers)
{
    std::vector<Device> devices;
    for (const Instance &instance : instancesOf(answers, "TAV_StorageSCSIDevice")) {
        devices.push_back(makeDevice(instance, kScsi));
    }
    for (const Instance &instance : instancesOf(answers, "TAV_StorageIDEDevice")) {
        devices.push_back(makeDevice(instance, kIde));
    }
    return devices;
}

// By address; the provider's order is that of the kernel's lists, in which target 10 comes before target 2.
bool isBefore(const Device &one, const Device &other)
{
    const auto place = [](const Device &device) {
        return std::make_tuple(device.interfaceType, device.bus, device.targetId, device.lun, device.ideConfiguration);
    };
    return place(one) < place(other);
}

std::vector<HardDisk> makeDisks(const Answers &answers)
{
    std::vector<HardDisk> disks;
    for (const Instance &instance : instancesOf(answers, "TAV_StorageHardDisk")) {
        disks.push_back(makeDisk(instance));
    }
    for (const Instance &instance : instancesOf(answers, "TAV_StorageLifeSpan")) {
        const unsigned diskIndex = unsignedOf(instance, "HDDIndex");
        const auto disk = std::find_if(disks.begin(), disks.end(),
                                       [diskIndex](const HardDisk &candidate) { return candidate.index == diskIndex; });
        if (disk != disks.end()) {
            disk->lifeSpan = LifeSpan{unsignedOf(instance, "Index"), intOf(instance, "EnduranceRemaining")};
        }
    }
    return disks;
}

Totals makeTotals(const Answers &answers)
{
    Totals totals;
    for (const Instance &instance : instancesOf(answers, "TAV_StorageTotalNumber")) {
        totals.controllers = unsignedOf(instance, "ControllerTotalNumber");
        totals.scsiDevices = unsignedOf(instance, "SCSIDeviceTotalNumber");
        totals.ideDevices = unsignedOf(instance, "IDEDeviceTotalNumber");
        totals.hardDisks = unsignedOf(instance, "HardDiskTotalNumber");
        totals.cdroms = unsignedOf(instance, "CDROMTotalNumber");
        totals.tapes = unsignedOf(instance, "TapeTotalNumber");
        totals.opticalMemories = unsignedOf(instance, "OpticalMemoryTotalNumber");
        totals.others = unsignedOf(instance, "MiscTotalNumber");
    }
    return totals;
}

Monitoring makeMonitoring(const Answers &answers)
{
    Monitoring monitoring;
    for (const Instance &instance : instancesOf(answers, "TAV_StorageConfig")) {
        monitoring.cycle = unsignedOf(instance, "MonitorCycle");
        monitoring.cycleMin = unsignedOf(instance, "MonitorCycleMin");
        monitoring.cycleMax = unsignedOf(instance, "MonitorCycleMax");
        monitoring.cycleDefault = unsignedOf(instance, "MonitorCycleDefault");
        monitoring.smartMode = intOf(instance, "HardDiskSmartMode");
    }
    for (const Instance &instance : instancesOf(answers, "TAV_StorageThread")) {
        monitoring.running = numberOf(instance, "ThreadRunning") != 0;
    }
    return monitoring;
}

void addDisks(const std::vector<Device> &devices, std::vector<DiskView> &disks)
{
    for (const Device &device : devices) {
        if (device.disk) {
            disks.push_back({&*device.disk, &device});
        }
    }
}

} // namespace

Smart HardDisk::smart() const
{
    switch (smartStatus) {
    case kFailurePredicted:
        return Smart::failing;
    case kStatusNotReadable:
        return Smart::notReadable;
    case 0:
        return reading;
    default:
        return Smart::unknownCode;
    }
}

std::string Device::address() const
{
    if (interfaceType == kIde) {
        return drivePositionWords(ideConfiguration);
    }
    return (host ? std::to_string(*host) + ":" : "") + std::to_string(bus) + ":" + std::to_string(targetId) + ":" +
           std::to_string(lun);
}

std::string Device::nameWords() const
{
    std::string words = printable(vendor);
    const std::string modelWords = printable(model);
    return words + (words.empty() || modelWords.empty() ? "" : " ") + modelWords;
}

std::string Device::serialWords() const
{
    return saysSomething(serialNumber) ? printable(serialNumber) : "";
}

std::vector<DiskView> disksOf(const Inventory &inventory)
{
    std::vector<DiskView> disks;
    for (const Controller &controller : inventory.controllers) {
        addDisks(controller.devices, disks);
    }
    addDisks(inventory.devicesWithoutController, disks);
    for (const HardDisk &disk : inventory.disksWithoutDevice) {
        disks.push_back({&disk, nullptr});
    }
    return disks;
}

size_t Inventory::deviceCount() const
{
    size_t count = devicesWithoutController.size();
    for (const Controller &controller : controllers) {
        count += controller.devices.size();
    }
    return count;
}

const std::vector<std::string> &inventoryClasses()
{
    static const std::vector<std::string> classes = {
        "TAV_StorageController", "TAV_StorageSCSIDevice",  "TAV_StorageIDEDevice", "TAV_StorageHardDisk",
        "TAV_StorageLifeSpan",   "TAV_StorageTotalNumber", "TAV_StorageConfig",    "TAV_StorageThread"};
    return classes;
}

Inventory buildInventory(const Answers &answers)
{
    Inventory inventory;
    for (const Instance &instance : instancesOf(answers, "TAV_StorageController")) {
        inventory.controllers.push_back(makeController(instance));
    }

    inventory.monitoring = makeMonitoring(answers);
    std::vector<Device> devices = makeDevices(answers);
    for (HardDisk &disk : makeDisks(answers)) {
        if (inventory.monitoring.smartMode != kSmartHandled || disk.interfaceType == kIde) {
            disk.reading = Smart::notAsked;
        }
        const auto device = std::find_if(devices.begin(), devices.end(), [&disk](const Device &candidate) {
            return candidate.interfaceType == disk.interfaceType && candidate.index == disk.interfaceTypeIndex;
        });
        if (device == devices.end()) {
            inventory.disksWithoutDevice.push_back(disk);
        } else {
            device->disk = disk;
        }
    }
    for (Device &device : devices) {
        const auto controller =
            std::find_if(inventory.controllers.begin(), inventory.controllers.end(),
                         [&device](const Controller &candidate) { return candidate.index == device.controllerIndex; });
        if (controller == inventory.controllers.end()) {
            inventory.devicesWithoutController.push_back(std::move(device));
        } else {
            controller->devices.push_back(std::move(device));
        }
    }
    for (Controller &controller : inventory.controllers) {
        std::stable_sort(controller.devices.begin(), controller.devices.end(), isBefore);
    }
    inventory.totals = makeTotals(answers);
    return inventory;
}

int64_t numberOf(const Instance &instance, const std::string &property)
{
    const broker::Value *value = instance.find(property);
    if (value == nullptr) {
        return 0;
    }
    if (const auto *flag = std::get_if<bool>(&value->data)) {
        return *flag ? 1 : 0;
    }
    if (const auto *number = std::get_if<uint64_t>(&value->data)) {
        return static_cast<int64_t>(*number);
    }
    if (const auto *number = std::get_if<int64_t>(&value->data)) {
        return *number;
    }
    int64_t number = 0;
    if (const auto *text = std::get_if<std::string>(&value->data)) {
        std::from_chars(text->data(), text->data() + text->size(), number);
    }
    return number;
}

std::string textOf(const Instance &instance, const std::string &property)
{
    const broker::Value *value = instance.find(property);
    const auto *text = value == nullptr ? nullptr : std::get_if<std::string>(&value->data);
    return text == nullptr ? std::string() : *text;
}

} // namespace tool

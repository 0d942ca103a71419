#include "json.h"

#include "health.h"
#include "json_document.h"
#include "words.h"

namespace tool {
namespace {

// A code and what it means: programs compare the one, people read the other.
Json coded(int code, const std::string &text)
{
    return {{"code", code}, {"text", text}};
}

Json unlessUnknown(unsigned number, unsigned unknown)
{
    return number == unknown ? Json(nullptr) : Json(number);
}

Json diskJson(const HardDisk &disk)
{
    Json json = {{"index", disk.index},
                 {"capacityMiB", disk.capacity},
                 {"cylinders", disk.cylinders},
                 {"heads", disk.heads},
                 {"sectorsPerTrack", disk.sectorsPerTrack},
                 {"smart", coded(disk.smartStatus, smartWords(disk.smartStatus))}};
    if (disk.lifeSpan) {
        json["lifeSpan"] = {{"index", disk.lifeSpan->index},
                            {"level", disk.lifeSpan->level},
                            {"text", lifeSpanWords(disk.lifeSpan->level)}};
    }
    return json;
}

Json deviceJson(const Device &device)
{
    Json json = {{"interface", interfaceWords(device.interfaceType)},
                 {"index", device.index},
                 {"type", coded(device.deviceType, deviceTypeWords(device.interfaceType, device.deviceType))},
                 {"typeIndex", device.deviceTypeIndex}};
    if (device.interfaceType == kIde) {
        json["position"] = coded(device.ideConfiguration, drivePositionWords(device.ideConfiguration));
    } else {
        json["address"] = {{"bus", device.bus}, {"target", device.targetId}, {"lun", device.lun}};
        json["vendor"] = device.vendor;
    }
    json["model"] = device.model;
    json["firmwareRevision"] = device.firmwareRevision;
    json["serialNumber"] = device.serialNumber;
    if (device.disk)
        json["hardDisk"] = diskJson(*device.disk);
    return json;
}

Json controllerJson(const Controller &controller)
{
    Json devices = Json::array();
    for (const Device &device : controller.devices)
        devices.push_back(deviceJson(device));
    return {{"index", controller.index},
            {"interface", coded(controller.interfaceType, interfaceWords(controller.interfaceType))},
            {"model", controller.model},
            {"driver", controller.driver},
            {"driverVersion", controller.driverVersion},
            {"interrupt", unlessUnknown(controller.interruptNumber, kNoInterrupt)},
            {"devices", devices}};
}

Json totalsJson(const Totals &totals)
{
    return {{"controllers", totals.controllers},
            {"scsiDevices", totals.scsiDevices},
            {"ideDevices", totals.ideDevices},
            {"hardDisks", totals.hardDisks},
            {"cdromDrives", totals.cdroms},
            {"tapeDrives", totals.tapes},
            {"opticalMemories", totals.opticalMemories},
            {"otherDevices", totals.others}};
}

Json monitoringJson(const Monitoring &monitoring)
{
    return {{"running", monitoring.running},           {"cycle", monitoring.cycle},
            {"cycleMin", monitoring.cycleMin},         {"cycleMax", monitoring.cycleMax},
            {"cycleDefault", monitoring.cycleDefault}, {"smartMode", monitoring.smartMode}};
}

Json healthJson(const Health &health)
{
    return {{"disks", health.disks},
            {"failurePredicted", health.failurePredicted},
            {"statusNotReadable", health.statusNotReadable},
            {"leastEndurance", health.leastEndurance},
            {"littleEndurance", health.littleEndurance},
            {"lifeSpanNotRead", health.lifeSpanNotRead}};
}

Json valueJson(const broker::Value &value)
{
    return std::visit(
        [](const auto &data) -> Json {
            if constexpr (std::is_same_v<std::decay_t<decltype(data)>, std::monostate>)
                return nullptr;
            else
                return data;
        },
        value.data);
}

Json classJson(const ClassEntry &entry)
{
    Json properties = Json::array();
    for (const PropertyEntry &property : entry.properties)
        properties.push_back({{"name", property.name}, {"type", schemaType(property.type)}, {"key", property.key}});
    Json methods = Json::array();
    for (const MethodEntry &method : entry.methods)
        methods.push_back({{"name", method.name}, {"arguments", method.arguments}});
    return {{"name", entry.name}, {"oneInstance", !entry.keyed()}, {"properties", properties}, {"methods", methods}};
}

} // namespace

Json document()
{
    return {{"formatVersion", kJsonFormatVersion}};
}

std::string written(const Json &json)
{
    return json.dump(2, ' ', false, Json::error_handler_t::replace) + "\n";
}

Json propertiesJson(const broker::Instance &instance)
{
    Json json = Json::object();
    for (const broker::NamedValue &property : instance.properties)
        json[property.name] = valueJson(property.value);
    return json;
}

std::string inventoryJson(const Inventory &inventory)
{
    Json json = document();
    json["machine"] = inventory.machine.empty() ? Json(nullptr) : Json(inventory.machine);
    json["controllers"] = Json::array();
    for (const Controller &controller : inventory.controllers)
        json["controllers"].push_back(controllerJson(controller));
    json["devicesWithoutController"] = Json::array();
    for (const Device &device : inventory.devicesWithoutController)
        json["devicesWithoutController"].push_back(deviceJson(device));
    json["disksWithoutDevice"] = Json::array();
    for (const HardDisk &disk : inventory.disksWithoutDevice)
        json["disksWithoutDevice"].push_back(diskJson(disk));
    json["totals"] = totalsJson(inventory.totals);
    json["health"] = healthJson(healthOf(inventory));
    json["monitoring"] = monitoringJson(inventory.monitoring);
    return written(json);
}

std::string instancesJson(const std::string &className, const std::vector<broker::Instance> &instances)
{
    Json json = document();
    json["class"] = className;
    json["instances"] = Json::array();
    for (const broker::Instance &instance : instances)
        json["instances"].push_back(propertiesJson(instance));
    return written(json);
}

std::string instanceJson(const std::string &className, const broker::Instance &instance)
{
    Json json = document();
    json["class"] = className;
    json["instance"] = propertiesJson(instance);
    return written(json);
}

std::string returnValuesJson(const std::string &className, const std::string &method,
                             const std::vector<broker::Value> &values)
{
    Json json = document();
    json["class"] = className;
    json["method"] = method;
    json["returnValues"] = Json::array();
    for (const broker::Value &value : values)
        json["returnValues"].push_back(valueJson(value));
    return written(json);
}

std::string catalogueJson(const std::vector<ClassEntry> &classes)
{
    Json json = document();
    json["classes"] = Json::array();
    for (const ClassEntry &entry : classes)
        json["classes"].push_back(classJson(entry));
    return written(json);
}

} // namespace tool

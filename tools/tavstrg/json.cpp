// SPDX-License-Identifier: Apache-2.0
#include "tavstrg/json.h"

#include "tavstrg/health.h"
#include "tavstrg/json_document.h"
#include "tavstrg/words.h"

#include <cstdio>
#include <ctime>
#include <sstream>
#include <sys/utsname.h>

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

// Trimmed; null where it says nothing: empty, "Unknown", "Not Supported".
Json providerText(const std::string &text)
{
    return saysSomething(text) ? Json(trimmed(text)) : Json(nullptr);
}

const char *interfaceName(int interfaceType)
{
    return interfaceType == kScsi ? "SCSI" : interfaceType == kIde ? "IDE" : "unknown";
}

Json lifeSpanJson(const LifeSpan &lifeSpan)
{
    return {{"index", lifeSpan.index}, {"level", lifeSpan.level}, {"text", lifeSpanWords(lifeSpan.level)}};
}

Json diskJson(const HardDisk &disk)
{
    return {
        {"index", disk.index},
        {"capacityMiB", disk.capacity},
        {"cylinders", disk.cylinders},
        {"heads", disk.heads},
        {"sectorsPerTrack", disk.sectorsPerTrack},
        {"smart", {{"code", disk.smartStatus}, {"state", smartName(disk.smart())}, {"text", smartWords(disk.smart())}}},
        {"lifeSpan", disk.lifeSpan ? lifeSpanJson(*disk.lifeSpan) : Json(nullptr)}};
}

Json deviceJson(const Device &device)
{
    const bool ide = device.interfaceType == kIde;
    const Json address = {{"bus", device.bus}, {"target", device.targetId}, {"lun", device.lun}};
    return {{"interface", interfaceName(device.interfaceType)},
            {"index", device.index},
            {"type", coded(device.deviceType, deviceTypeWords(device.interfaceType, device.deviceType))},
            {"typeIndex", device.deviceTypeIndex},
            {"node", nodePath(device.node)},
            {"hostNumber", hostNumber(device.host)},
            {"address", ide ? Json(nullptr) : address},
            {"position", ide ? Json(drivePositionName(device.ideConfiguration)) : Json(nullptr)},
            {"vendor", providerText(device.vendor)},
            {"model", providerText(device.model)},
            {"firmwareRevision", providerText(device.firmwareRevision)},
            {"serialNumber", providerText(device.serialNumber)},
            {"hardDisk", device.disk ? diskJson(*device.disk) : Json(nullptr)}};
}

Json controllerJson(const Controller &controller)
{
    Json devices = Json::array();
    for (const Device &device : controller.devices) {
        devices.push_back(deviceJson(device));
    }
    return {{"index", controller.index},
            {"interface", interfaceName(controller.interfaceType)},
            {"hostNumber", hostNumber(controller.host)},
            {"model", providerText(controller.model)},
            {"driver", providerText(controller.driver)},
            {"driverVersion", providerText(controller.driverVersion)},
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
            {"good", health.good},
            {"failurePredicted", health.failurePredicted},
            {"statusNotReadable", health.statusNotReadable},
            {"notAsked", health.notAsked},
            {"notSupported", health.notSupported},
            {"unconfirmed", health.unconfirmed},
            {"leastEndurance", health.leastEndurance},
            {"littleEndurance", health.littleEndurance},
            {"lifeSpanNotRead", health.lifeSpanNotRead}};
}

Json valueJson(const broker::Value &value)
{
    return std::visit(
        [](const auto &data) -> Json {
            if constexpr (std::is_same_v<std::decay_t<decltype(data)>, std::monostate>) {
                return nullptr;
            } else {
                return data;
            }
        },
        value.data);
}

// A whole number without a fraction, as the text format has it.
Json sampleValue(double value)
{
    const auto whole = static_cast<int64_t>(value);
    return static_cast<double>(whole) == value ? Json(whole) : Json(value);
}

Json classJson(const ClassEntry &entry)
{
    Json properties = Json::array();
    for (const PropertyEntry &property : entry.properties) {
        properties.push_back({{"name", property.name}, {"type", schemaType(property.type)}, {"key", property.key}});
    }
    Json methods = Json::array();
    for (const MethodEntry &method : entry.methods) {
        methods.push_back({{"name", method.name}, {"arguments", method.arguments}});
    }
    return {{"name", entry.name}, {"oneInstance", !entry.keyed()}, {"properties", properties}, {"methods", methods}};
}

} // namespace

namespace {

constexpr bool kOnlyAscii = true; // a terminal may take other characters for controls

} // namespace

std::string hostName()
{
    utsname name = {};
    return uname(&name) == 0 ? name.nodename : "";
}

Json textOrNull(std::string_view text)
{
    return text.empty() ? Json(nullptr) : Json(text);
}

Json nodePath(const std::string &node)
{
    return node.empty() ? Json(nullptr) : Json("/dev/" + node);
}

Json hostNumber(const std::optional<unsigned> &number)
{
    return number ? Json(*number) : Json(nullptr);
}

std::string utcTime(double seconds)
{
    const auto whole = static_cast<time_t>(seconds);
    const int milliseconds = static_cast<int>((seconds - static_cast<double>(whole)) * 1000);
    std::tm parts = {};
    char text[32];
    gmtime_r(&whole, &parts);
    const size_t length = std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%S", &parts);
    std::snprintf(text + length, sizeof text - length, ".%03dZ", milliseconds);
    return text;
}

double secondsNow()
{
    timespec now = {};
    clock_gettime(CLOCK_REALTIME, &now);
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) / 1e9;
}

Json document(const char *command)
{
    return {{"formatVersion", kJsonFormatVersion},
            {"command", command},
            {"toolVersion", TAV_VERSION},
            {"hostName", hostName()},
            {"time", utcTime(secondsNow())}};
}

std::string written(const Json &json)
{
    return json.dump(2, ' ', kOnlyAscii, Json::error_handler_t::replace) + "\n";
}

std::string writtenInOneLine(const Json &json)
{
    return json.dump(-1, ' ', kOnlyAscii, Json::error_handler_t::replace) + "\n";
}

Json propertiesJson(const broker::Instance &instance)
{
    Json json = Json::object();
    for (const broker::NamedValue &property : instance.properties) {
        json[property.name] = valueJson(property.value);
    }
    return json;
}

std::string inventoryJson(const Inventory &inventory)
{
    Json json = document("show");
    json["machine"] = inventory.machine.empty() ? Json(nullptr) : Json(inventory.machine);
    json["collection"] = {{"time", utcTime(inventory.collection.time)},
                          {"durationSeconds", inventory.collection.seconds}};
    json["explanation"] = inventory.explanation.empty() ? Json(nullptr) : Json(inventory.explanation);
    json["controllers"] = Json::array();
    for (const Controller &controller : inventory.controllers) {
        json["controllers"].push_back(controllerJson(controller));
    }
    json["devicesWithoutController"] = Json::array();
    for (const Device &device : inventory.devicesWithoutController) {
        json["devicesWithoutController"].push_back(deviceJson(device));
    }
    json["disksWithoutDevice"] = Json::array();
    for (const HardDisk &disk : inventory.disksWithoutDevice) {
        json["disksWithoutDevice"].push_back(diskJson(disk));
    }
    json["totals"] = totalsJson(inventory.totals);
    json["health"] = healthJson(healthOf(inventory));
    json["monitoring"] = monitoringJson(inventory.monitoring);
    return written(json);
}

std::string instancesJson(const std::string &className, const std::vector<broker::Instance> &instances)
{
    Json json = document("enum");
    json["class"] = className;
    json["instances"] = Json::array();
    for (const broker::Instance &instance : instances) {
        json["instances"].push_back(propertiesJson(instance));
    }
    return written(json);
}

std::string instanceJson(const std::string &className, const broker::Instance &instance)
{
    Json json = document("get");
    json["class"] = className;
    json["instance"] = propertiesJson(instance);
    return written(json);
}

std::string returnValuesJson(const std::string &className, const std::string &method,
                             const std::vector<broker::Value> &values)
{
    Json json = document("call");
    json["class"] = className;
    json["method"] = method;
    json["returnValues"] = Json::array();
    for (const broker::Value &value : values) {
        json["returnValues"].push_back(valueJson(value));
    }
    return written(json);
}

std::string catalogueJson(const std::vector<ClassEntry> &classes)
{
    Json json = document("classes");
    json["classes"] = Json::array();
    for (const ClassEntry &entry : classes) {
        json["classes"].push_back(classJson(entry));
    }
    return written(json);
}

std::string metricsJson(const std::vector<Metric> &metrics)
{
    Json json = document("metrics");
    json["metrics"] = Json::array();
    for (const Metric &metric : metrics) {
        Json samples = Json::array();
        for (const Sample &sample : metric.samples) {
            Json labels = Json::object();
            for (const auto &[label, content] : sample.labels) {
                labels[std::string(label)] = content;
            }
            samples.push_back({{"labels", labels}, {"value", sampleValue(sample.value)}});
        }
        json["metrics"].push_back({{"name", metric.name},
                                   {"type", typeOf(metric)},
                                   {"help", std::string(metric.help)},
                                   {"samples", samples}});
    }
    return written(json);
}

std::string failureJson(const char *command, int exitStatus, int cimStatus, const std::string &error)
{
    Json messages = Json::array();
    std::istringstream lines(error);
    for (std::string line; std::getline(lines, line);) {
        messages.push_back(line);
    }
    Json json = document(command);
    json["failure"] = {{"exitStatus", exitStatus},
                       {"cimStatus", cimStatus == 0 ? Json(nullptr) : Json(cimStatus)},
                       {"messages", messages}};
    return writtenInOneLine(json);
}

std::string noteJson(const char *command, const std::string &note)
{
    Json json = document(command);
    json["note"] = note;
    return writtenInOneLine(json);
}

} // namespace tool

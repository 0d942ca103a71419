// SPDX-License-Identifier: Apache-2.0
#include "tavstrg/disks.h"

#include "tavstrg/json_document.h"

#include <algorithm>

namespace tool {
namespace {

using namespace tavstrg::disks;

template <class Value> Json valueOrNull(const Maybe<Value> &value)
{
    return value ? Json(value.value) : Json(nullptr);
}

Json timeOrNull(const Maybe<int64_t> &time)
{
    return time ? Json(utcTime(static_cast<double>(time.value))) : Json(nullptr);
}

Json pathsJson(const Disk &disk)
{
    Json paths = Json::array();
    for (uint32_t i = 0; i < std::min<uint32_t>(disk.pathCount, kKeptPaths); ++i) {
        paths.push_back(disk.paths[i]);
    }
    return paths;
}

Json healthJson(const tavstrg::disks::Health &health)
{
    return {{"state", nameOf(health.state)},
            {"source", textOrNull(health.source)},
            {"reason", textOrNull(health.reason)},
            {"since", timeOrNull(health.since)}};
}

Json readingsJson(const Readings &readings)
{
    return {{"enduranceUsedPercent", valueOrNull(readings.enduranceUsedPercent)},
            {"sparePercent", valueOrNull(readings.sparePercent)},
            {"temperatureCelsius", valueOrNull(readings.temperatureCelsius)},
            {"powerOnHours", valueOrNull(readings.powerOnHours)},
            {"powerCycles", valueOrNull(readings.powerCycles)},
            {"mediaErrors", valueOrNull(readings.mediaErrors)},
            {"reallocatedSectors", valueOrNull(readings.reallocatedSectors)},
            {"pendingSectors", valueOrNull(readings.pendingSectors)},
            {"bytesRead", valueOrNull(readings.bytesRead)},
            {"bytesWritten", valueOrNull(readings.bytesWritten)}};
}

Json oneDiskJson(const Disk &disk)
{
    return {{"id", disk.id},
            {"idSource", nameOf(disk.idSource)},
            {"node", std::string("/dev/") + disk.name},
            {"paths", pathsJson(disk)},
            {"pathCount", disk.pathCount},
            {"transport", nameOf(disk.transport)},
            {"protocol", nameOf(disk.protocol)},
            {"address", textOrNull(disk.address)},
            {"adapter", textOrNull(disk.adapter)},
            {"bay", textOrNull(disk.bay)},
            {"vendor", textOrNull(disk.vendor)},
            {"model", textOrNull(disk.model)},
            {"serialNumber", textOrNull(disk.serial)},
            {"firmwareRevision", textOrNull(disk.firmware)},
            {"wwid", textOrNull(disk.wwid)},
            {"nvmeNamespace", valueOrNull(disk.nvmeNamespace)},
            {"sizeBytes", valueOrNull(disk.sizeBytes)},
            {"logicalBlockBytes", valueOrNull(disk.logicalBlockBytes)},
            {"physicalBlockBytes", valueOrNull(disk.physicalBlockBytes)},
            {"rotational", valueOrNull(disk.rotational)},
            {"rotationsPerMinute", valueOrNull(disk.rotationsPerMinute)},
            {"power", nameOf(disk.readings.power)},
            {"health", healthJson(disk.health)},
            {"readings", readingsJson(disk.readings)},
            {"firstSeen", timeOrNull(disk.firstSeen)},
            {"lastAsked", timeOrNull(disk.lastAsked)}};
}

Json attributesJson(const Readings &readings)
{
    Json attributes = Json::array();
    for (uint32_t i = 0; i < readings.attributeCount; ++i) {
        const AtaAttribute &one = readings.attributes[i];
        attributes.push_back({{"id", one.id},
                              {"flags", one.flags},
                              {"current", one.current},
                              {"worst", one.worst},
                              {"threshold", valueOrNull(one.threshold)},
                              {"raw", one.raw}});
    }
    return attributes;
}

Json begin(const char *command, const DiskReport &report)
{
    Json json = document(command);
    json["machine"] = report.machine.empty() ? Json(nullptr) : Json(report.machine);
    return json;
}

Json totalsJson(const std::vector<Disk> &disks)
{
    Json totals = {{"disks", disks.size()}};
    for (auto state = static_cast<int>(HealthState::unknown); state <= static_cast<int>(HealthState::off); ++state) {
        const auto wanted = static_cast<HealthState>(state);
        totals[nameOf(wanted)] = std::count_if(disks.begin(), disks.end(),
                                               [wanted](const Disk &disk) { return disk.health.state == wanted; });
    }
    return totals;
}

std::string listJson(const char *command, const DiskReport &report, const std::vector<Disk> &shown)
{
    Json json = begin(command, report);
    json["explanation"] = report.explanation.empty() ? Json(nullptr) : Json(report.explanation);
    json["notes"] = report.notes;
    json["disks"] = Json::array();
    for (const Disk &disk : shown) {
        json["disks"].push_back(oneDiskJson(disk));
    }
    json["totals"] = totalsJson(report.disks);
    return written(json);
}

} // namespace

std::string disksJson(const DiskReport &report, const std::vector<Disk> &shown)
{
    return listJson("disks", report, shown);
}

std::string diskHealthJson(const DiskReport &report)
{
    std::vector<Disk> shown = report.disks;
    std::erase_if(shown, [](const Disk &disk) { return !needsAttention(disk.health.state); });
    return listJson("health", report, shown);
}

std::string diskJson(const DiskReport &report, const Disk &disk)
{
    Json json = begin("disk", report);
    json["disk"] = oneDiskJson(disk);
    json["attributes"] = attributesJson(disk.readings);
    return written(json);
}

} // namespace tool

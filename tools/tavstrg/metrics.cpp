// SPDX-License-Identifier: Apache-2.0
#include "tavstrg/metrics.h"

#include "tavstrg/words.h"

#include <cmath>
#include <cstdio>
#include <cstring>
#include <string_view>
#include <utility>
#include <vector>

namespace tool {
namespace {

// A label's value: backslash, quote and line end are written with a backslash (exposition format 0.0.4).
std::string escaped(const std::string &value)
{
    std::string result;
    for (const char c : printable(value)) {
        if (c == '\\' || c == '"') {
            result += '\\';
        }
        result += c;
    }
    return result;
}

Metric metricCalled(const std::string &name, std::string_view help)
{
    return {"tavstorage_" + name, help, {}, false};
}

// Index, serial number and node of a disk: the index alone is another disk's after a disk was added or removed.
Labels nameOf(const DiskView &view)
{
    return {{"disk", std::to_string(view.disk->index)},
            {"serial", view.device == nullptr ? "" : view.device->serialWords()},
            {"node", view.device == nullptr ? "" : view.device->node}};
}

std::string known(const std::string &text)
{
    return saysSomething(text) ? text : "";
}

std::string addressOf(const Device &device)
{
    if (device.interfaceType == kIde) {
        return std::to_string(device.controllerIndex) + "-" + drivePositionWords(device.ideConfiguration);
    }
    return std::to_string(device.controllerIndex) + "-" + std::to_string(device.bus) + "-" +
           std::to_string(device.targetId) + "-" + std::to_string(device.lun);
}

Metric infoMetric(const std::vector<DiskView> &disks)
{
    Metric metric = metricCalled(
        "disk_info",
        "Identity and place of a hard disk; address is controller-bus-target-LUN or controller-position, hctl is "
        "host:channel:target:LUN as lsscsi has it, empty when not known. Always 1.");
    for (const DiskView &view : disks) {
        Labels labels = nameOf(view);
        labels.emplace_back("interface", interfaceWords(view.disk->interfaceType));
        if (const Device *device = view.device) {
            labels.insert(labels.end(), {{"address", addressOf(*device)},
                                         {"hctl", device->host ? device->address() : ""},
                                         {"vendor", known(device->vendor)},
                                         {"model", known(device->model)},
                                         {"firmware", known(device->firmwareRevision)}});
        }
        metric.samples.push_back({labels, 1});
    }
    return metric;
}

Metric smartMetric(const std::vector<DiskView> &disks)
{
    Metric metric = metricCalled(
        "disk_smart_state",
        "1 for the SMART state of a disk, 0 for the others. good: asked, no failure predicted; not_readable: asked, no "
        "verdict obtained; not_asked: SMART handling is off or it is an IDE disk; unconfirmed: no failure reported, "
        "which may also mean one of the others.");
    for (const DiskView &view : disks) {
        for (const Smart state : allSmartStates()) {
            Labels labels = nameOf(view);
            labels.emplace_back("state", smartLabel(state));
            metric.samples.push_back({labels, view.disk->smart() == state ? 1.0 : 0.0});
        }
    }
    return metric;
}

Metric capacityMetric(const std::vector<DiskView> &disks)
{
    Metric metric = metricCalled("disk_capacity_bytes", "Capacity of a hard disk.");
    for (const DiskView &view : disks) {
        metric.samples.push_back({nameOf(view), static_cast<double>(uint64_t{view.disk->capacity} << 20)});
    }
    return metric;
}

Metric enduranceMetric(const std::vector<DiskView> &disks)
{
    Metric metric = metricCalled("disk_endurance_level",
                                 "Endurance left of a solid-state drive, 1 (least) to 5; absent when unknown.");
    for (const DiskView &view : disks) {
        if (view.disk->lifeSpan && view.disk->lifeSpan->level >= 0) {
            metric.samples.push_back({nameOf(view), static_cast<double>(view.disk->lifeSpan->level)});
        }
    }
    return metric;
}

Metric enduranceReadMetric(const std::vector<DiskView> &disks)
{
    Metric metric = metricCalled("disk_endurance_readable",
                                 "Whether the endurance of a solid-state drive in the endurance table was read.");
    for (const DiskView &view : disks) {
        if (view.disk->lifeSpan) {
            metric.samples.push_back({nameOf(view), view.disk->lifeSpan->level >= 0 ? 1.0 : 0.0});
        }
    }
    return metric;
}

Metric single(const std::string &name, std::string_view help, double value, const Labels &labels = {})
{
    Metric metric = metricCalled(name, help);
    metric.samples.push_back({labels, value});
    return metric;
}

std::vector<Metric> collectionMetrics(const Collection &collection, bool success)
{
    return {
        single("build_info", "Version of the tool. Always 1.", 1, {{"version", TAV_VERSION}}),
        single("collection_success", "Whether the inventory could be collected; without it no other series is there.",
               success ? 1 : 0),
        single("collection_timestamp_seconds", "When the collection ended, in seconds since 1970.", collection.time),
        single("collection_duration_seconds", "How long the collection took.", collection.seconds)};
}

Metric countMetric(const Totals &totals)
{
    Metric metric = metricCalled("devices", "Number of controllers and devices by kind.");
    const std::pair<std::string_view, unsigned> kinds[] = {
        {"controller", totals.controllers},
        {"scsi_device", totals.scsiDevices},
        {"ide_device", totals.ideDevices},
        {"hard_disk", totals.hardDisks},
        {"cdrom", totals.cdroms},
        {"tape", totals.tapes},
        {"optical_memory", totals.opticalMemories},
        {"other", totals.others},
    };
    for (const auto &[kind, count] : kinds) {
        metric.samples.push_back({{{"kind", std::string(kind)}}, static_cast<double>(count)});
    }
    return metric;
}

// A whole number without fraction or exponent, any other to the microsecond.
std::string valueText(double value)
{
    char text[64];
    const bool whole = std::trunc(value) == value;
    std::snprintf(text, sizeof text, whole ? "%.0f" : "%.6f", value);
    return text;
}

std::string sampleText(const std::string &name, const Sample &sample)
{
    std::string list;
    for (const auto &[label, content] : sample.labels) {
        list += (list.empty() ? "" : ",") + std::string(label) + "=\"" + escaped(content) + "\"";
    }
    return name + (list.empty() ? "" : "{" + list + "}") + " " + valueText(sample.value) + "\n";
}

} // namespace

std::vector<Metric> metricsOf(const Inventory &inventory)
{
    const std::vector<DiskView> disks = disksOf(inventory);
    std::vector<Metric> metrics = collectionMetrics(inventory.collection, true);
    for (Metric &metric :
         std::vector<Metric>{countMetric(inventory.totals),
                             single("smart_handling_enabled", "Whether disks are asked for their SMART status.",
                                    inventory.monitoring.smartMode == kSmartHandled ? 1 : 0),
                             infoMetric(disks), capacityMetric(disks), smartMetric(disks), enduranceMetric(disks),
                             enduranceReadMetric(disks)}) {
        metrics.push_back(std::move(metric));
    }
    return metrics;
}

std::vector<Metric> metricsOfFailure(const Collection &collection)
{
    return collectionMetrics(collection, false);
}

const char *typeOf(const Metric &metric)
{
    return metric.counter ? "counter" : "gauge";
}

std::string metricsText(const std::vector<Metric> &metrics)
{
    std::string text;
    for (const Metric &metric : metrics) {
        text += "# HELP " + metric.name + " " + std::string(metric.help) + "\n# TYPE " + metric.name + " " +
                typeOf(metric) + "\n";
        for (const Sample &sample : metric.samples) {
            text += sampleText(metric.name, sample);
        }
    }
    return text;
}

} // namespace tool

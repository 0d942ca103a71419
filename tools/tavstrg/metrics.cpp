// SPDX-License-Identifier: Apache-2.0
#include "tavstrg/metrics.h"

#include "tavstrg/words.h"

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
    return {"tavstorage_" + name, help, {}};
}

// A disk with the device that it is, which is not there when something was plugged in between two answers.
struct DiskView {
    const HardDisk *disk;
    const Device *device;
};

void collectDisks(const std::vector<Device> &devices, std::vector<DiskView> &disks)
{
    for (const Device &device : devices) {
        if (device.disk) {
            disks.push_back({&*device.disk, &device});
        }
    }
}

std::vector<DiskView> disksOf(const Inventory &inventory)
{
    std::vector<DiskView> disks;
    for (const Controller &controller : inventory.controllers) {
        collectDisks(controller.devices, disks);
    }
    collectDisks(inventory.devicesWithoutController, disks);
    for (const HardDisk &disk : inventory.disksWithoutDevice) {
        disks.push_back({&disk, nullptr});
    }
    return disks;
}

Labels nameOf(const DiskView &view)
{
    return {{"disk", std::to_string(view.disk->index)}};
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
        "What a hard disk is; its address is controller-bus-target-LUN, or controller-position. Always 1.");
    for (const DiskView &view : disks) {
        Labels labels = nameOf(view);
        labels.emplace_back("interface", interfaceWords(view.disk->interfaceType));
        if (const Device *device = view.device) {
            labels.insert(labels.end(), {{"address", addressOf(*device)},
                                         {"vendor", device->vendor},
                                         {"model", device->model},
                                         {"firmware", device->firmwareRevision},
                                         {"serial", device->serialNumber}});
        }
        metric.samples.push_back({labels, 1});
    }
    return metric;
}

Metric smartMetric(const std::vector<DiskView> &disks)
{
    constexpr std::pair<std::string_view, int> kStates[] = {
        {"no_failure_reported", 0}, {"failing", 1}, {"unreadable", -1}};
    Metric metric =
        metricCalled("disk_smart_state",
                     "1 for what SMART says of a disk, 0 for the others; a disk without SMART reports no failure. "
                     "Absent while SMART is not handled.");
    for (const DiskView &view : disks) {
        for (const auto &[state, code] : kStates) {
            Labels labels = nameOf(view);
            labels.emplace_back("state", state);
            metric.samples.push_back({labels, view.disk->smartStatus == code ? uint64_t{1} : 0});
        }
    }
    return metric;
}

Metric capacityMetric(const std::vector<DiskView> &disks)
{
    Metric metric = metricCalled("disk_capacity_bytes", "Capacity of a hard disk.");
    for (const DiskView &view : disks) {
        metric.samples.push_back({nameOf(view), uint64_t{view.disk->capacity} << 20});
    }
    return metric;
}

Metric enduranceMetric(const std::vector<DiskView> &disks)
{
    Metric metric = metricCalled("disk_endurance_level",
                                 "Endurance left of a solid-state drive, 1 (least) to 5; absent when unknown.");
    for (const DiskView &view : disks) {
        if (view.disk->lifeSpan && view.disk->lifeSpan->level >= 0) {
            metric.samples.push_back({nameOf(view), static_cast<uint64_t>(view.disk->lifeSpan->level)});
        }
    }
    return metric;
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
        metric.samples.push_back({{{"kind", std::string(kind)}}, count});
    }
    return metric;
}

std::string sampleText(const std::string &name, const Sample &sample)
{
    std::string list;
    for (const auto &[label, content] : sample.labels) {
        list += (list.empty() ? "" : ",") + std::string(label) + "=\"" + escaped(content) + "\"";
    }
    return name + (list.empty() ? "" : "{" + list + "}") + " " + std::to_string(sample.value) + "\n";
}

} // namespace

std::vector<Metric> metricsOf(const Inventory &inventory)
{
    const std::vector<DiskView> disks = disksOf(inventory);
    const bool handled = inventory.monitoring.smartMode == 1;
    Metric handling = metricCalled("smart_handling_enabled", "Whether disks are asked for their SMART verdict.");
    handling.samples.push_back({{}, handled ? uint64_t{1} : 0});
    std::vector<Metric> metrics = {countMetric(inventory.totals), handling, infoMetric(disks), capacityMetric(disks)};
    if (handled) {
        metrics.push_back(smartMetric(disks));
    }
    metrics.push_back(enduranceMetric(disks));
    return metrics;
}

std::string metricsText(const std::vector<Metric> &metrics)
{
    std::string text;
    for (const Metric &metric : metrics) {
        text += "# HELP " + metric.name + " " + std::string(metric.help) + "\n# TYPE " + metric.name + " gauge\n";
        for (const Sample &sample : metric.samples) {
            text += sampleText(metric.name, sample);
        }
    }
    return text;
}

} // namespace tool

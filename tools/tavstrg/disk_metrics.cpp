// SPDX-License-Identifier: Apache-2.0
#include "tavstrg/disk_metrics.h"

#include <optional>
#include <string_view>
#include <unordered_set>

namespace tool {
namespace {

using namespace tavstrg::disks;

using Value = std::optional<double>;

constexpr double kPercent = 0.01;
constexpr double kSecondsOfHour = 3600;

template <class Number> Value valueOf(const Maybe<Number> &number, double unit = 1)
{
    return number ? Value(static_cast<double>(number.value) * unit) : std::nullopt;
}

// A metric with at most one sample for each disk.
struct DiskMetric {
    std::string_view name;
    std::string_view help;
    Value (*value)(const Disk &);
    bool counter = false;
};

#define VALUE(...) [](const Disk &disk) -> Value { return valueOf(__VA_ARGS__); }
#define COUNTER(...) VALUE(__VA_ARGS__), true

constexpr DiskMetric kDiskMetrics[] = {
    {"health_since_timestamp_seconds", "When the disk was first seen in its state of health, in seconds since 1970.",
     VALUE(disk.health.since)},
    {"last_read_timestamp_seconds", "When the values of the disk were read, in seconds since 1970.",
     VALUE(disk.lastAsked)},
    {"size_bytes", "Capacity of the disk.", VALUE(disk.sizeBytes)},
    {"paths", "Paths to the disk.", [](const Disk &disk) -> Value { return disk.pathCount; }},
    {"temperature_celsius", "Temperature of the disk.", VALUE(disk.readings.temperatureCelsius)},
    {"endurance_used_ratio", "Endurance used: 1 is all that the maker warrants; may exceed 1.",
     VALUE(disk.readings.enduranceUsedPercent, kPercent)},
    {"spare_ratio", "Spare capacity left, from 0 to 1.", VALUE(disk.readings.sparePercent, kPercent)},
    {"power_on_seconds_total", "Time for which the disk was powered.",
     COUNTER(disk.readings.powerOnHours, kSecondsOfHour)},
    {"power_cycles_total", "Times that the disk was powered on.", COUNTER(disk.readings.powerCycles)},
    {"media_errors_total", "Data that the disk could not correct.", COUNTER(disk.readings.mediaErrors)},
    {"read_bytes_total", "Data read from the disk, over its life.", COUNTER(disk.readings.bytesRead)},
    {"written_bytes_total", "Data written to the disk, over its life.", COUNTER(disk.readings.bytesWritten)},
    {"reallocated_sectors", "Sectors that were replaced by spare ones.", VALUE(disk.readings.reallocatedSectors)},
    {"pending_sectors", "Sectors that could not be read and wait to be written.", VALUE(disk.readings.pendingSectors)},
};

#undef COUNTER
#undef VALUE

using Disks = std::vector<const Disk *>;

Disks withOwnIdentity(std::span<const Disk> disks)
{
    Disks kept;
    std::unordered_set<std::string_view> ids;
    for (const Disk &disk : disks) {
        if (ids.insert(disk.id).second) {
            kept.push_back(&disk);
        }
    }
    return kept;
}

Metric oneSample(std::string name, std::string_view help, double value, const Labels &labels = {})
{
    return {std::move(name), help, {{labels, value}}};
}

void addPass(std::vector<Metric> &metrics, const Disks &disks, const PassFigures &pass)
{
    metrics.push_back(
        oneSample("tavstrg_build_info", "Version of the program. Always 1.", 1, {{"version", TAV_VERSION}}));
    metrics.push_back(
        oneSample("tavstrg_pass_success", "Whether the last pass over the disks succeeded.", pass.success));
    if (pass.seconds) {
        metrics.push_back(oneSample("tavstrg_pass_duration_seconds", "Duration of the last pass.", *pass.seconds));
    }
    if (pass.lastSuccess) {
        metrics.push_back(oneSample("tavstrg_last_success_timestamp_seconds",
                                    "End of the last pass that succeeded, in seconds since 1970.",
                                    static_cast<double>(pass.lastSuccess.value)));
        metrics.push_back(oneSample("tavstrg_disks",
                                    "Disks in the last pass that succeeded; a multipath disk counts once.",
                                    static_cast<double>(disks.size())));
    }
}

Metric infoMetric(const Disks &disks)
{
    Metric metric{"tavstrg_disk_info", "Names and place of the disk. Always 1.", {}};
    for (const Disk *disk : disks) {
        metric.samples.push_back({{{"disk", disk->id},
                                   {"name", disk->name},
                                   {"transport", nameOf(disk->transport)},
                                   {"address", disk->address},
                                   {"adapter", disk->adapter},
                                   {"bay", disk->bay},
                                   {"vendor", disk->vendor},
                                   {"model", disk->model},
                                   {"serial", disk->serial},
                                   {"firmware", disk->firmware}},
                                  1});
    }
    return metric;
}

Metric healthMetric(const Disks &disks)
{
    static constexpr HealthState kStates[] = {HealthState::good,      HealthState::warning, HealthState::failing,
                                              HealthState::asleep,    HealthState::off,     HealthState::unknown,
                                              HealthState::unreadable};
    Metric metric{"tavstrg_disk_health", "1 for the state that the disk has, 0 for the others.", {}};
    for (const Disk *disk : disks) {
        for (const HealthState state : kStates) {
            metric.samples.push_back(
                {{{"disk", disk->id}, {"state", nameOf(state)}}, disk->health.state == state ? 1.0 : 0.0});
        }
    }
    return metric;
}

Metric metricOf(const DiskMetric &one, const Disks &disks)
{
    Metric metric{"tavstrg_disk_" + std::string(one.name), one.help, {}, one.counter};
    for (const Disk *disk : disks) {
        if (const Value value = one.value(*disk)) {
            metric.samples.push_back({{{"disk", disk->id}}, *value});
        }
    }
    return metric;
}

} // namespace

std::vector<Metric> diskMetrics(std::span<const Disk> disks, const PassFigures &pass)
{
    const Disks kept = withOwnIdentity(disks);
    std::vector<Metric> metrics;
    addPass(metrics, kept, pass);
    metrics.push_back(infoMetric(kept));
    metrics.push_back(healthMetric(kept));
    for (const DiskMetric &one : kDiskMetrics) {
        metrics.push_back(metricOf(one, kept));
    }
    std::erase_if(metrics, [](const Metric &metric) { return metric.samples.empty(); });
    return metrics;
}

std::string diskMetricsText(std::span<const Disk> disks, const PassFigures &pass)
{
    return metricsText(diskMetrics(disks, pass));
}

} // namespace tool

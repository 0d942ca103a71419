// SPDX-License-Identifier: Apache-2.0
#include "tavstrg/disk_columns.h"

#include "tavstrg/json_document.h"
#include "tavstrg/words.h"

#include <algorithm>
#include <array>
#include <cstdio>

namespace tool {
namespace {

using namespace tavstrg::disks;

template <class Value> std::string digits(const Maybe<Value> &value)
{
    return value ? std::to_string(value.value) : std::string();
}

template <class Value> std::optional<double> keyOf(const Maybe<Value> &value)
{
    return value ? std::optional<double>(static_cast<double>(value.value)) : std::nullopt;
}

// In the largest unit that leaves at most four digits, as lsblk does: "931.5G".
std::string sizeWords(const Maybe<uint64_t> &bytes)
{
    if (!bytes) {
        return "";
    }
    constexpr std::string_view kUnits = "BKMGTPE";
    auto value = static_cast<double>(bytes.value);
    size_t unit = 0;
    while (value >= 1024 && unit + 1 < kUnits.size()) {
        value /= 1024;
        ++unit;
    }
    char text[32];
    std::snprintf(text, sizeof text, "%.*f%c",
                  value >= 1000 || value == static_cast<double>(static_cast<int>(value)) ? 0 : 1, value, kUnits[unit]);
    return text;
}

std::string timeWords(const Maybe<int64_t> &time)
{
    return time ? utcTime(static_cast<double>(time.value)).substr(0, 19) + "Z" : "";
}

std::string percent(const Maybe<uint32_t> &value)
{
    return value ? digits(value) + "%" : "";
}

std::string rotationOf(const Disk &disk)
{
    if (disk.rotationsPerMinute) {
        return digits(disk.rotationsPerMinute);
    }
    return disk.rotational ? (disk.rotational.value ? "rotating" : "solid") : "";
}

std::string pathsOf(const Disk &disk)
{
    std::string all;
    for (uint32_t i = 0; i < std::min<uint32_t>(disk.pathCount, kKeptPaths); ++i) {
        all += (i == 0 ? "" : " ") + std::string(disk.paths[i]);
    }
    return all;
}

std::string powerOf(const Disk &disk)
{
    return disk.readings.power == PowerState::unknown ? "" : nameOf(disk.readings.power);
}

#define TEXT(name, words, expression)                                                                                  \
    DiskColumn                                                                                                         \
    {                                                                                                                  \
        name, words, false, [](const Disk &disk) -> std::string { return expression; }, nullptr, nullptr               \
    }
#define NUMBER(name, words, field, written)                                                                            \
    DiskColumn                                                                                                         \
    {                                                                                                                  \
        name, words, true, [](const Disk &disk) -> std::string { return written(disk.field); },                        \
            [](const Disk &disk) -> std::string { return digits(disk.field); },                                        \
            [](const Disk &disk) { return keyOf(disk.field); }                                                         \
    }

const std::array kDiskColumns{
    TEXT("ID", "identity", disk.id),
    TEXT("NODE", "node", disk.name),
    TEXT("PATHS", "paths", pathsOf(disk)),
    TEXT("TRAN", "transport", nameOf(disk.transport)),
    TEXT("ADDRESS", "address", disk.address),
    TEXT("ADAPTER", "adapter", disk.adapter),
    TEXT("BAY", "bay", disk.bay),
    TEXT("VENDOR", "vendor", disk.vendor),
    TEXT("MODEL", "model", disk.model),
    TEXT("SERIAL", "serial number", disk.serial),
    TEXT("FIRMWARE", "firmware", disk.firmware),
    NUMBER("SIZE", "size", sizeBytes, sizeWords),
    NUMBER("LOG-SEC", "logical block, bytes", logicalBlockBytes, digits),
    NUMBER("PHY-SEC", "physical block, bytes", physicalBlockBytes, digits),
    TEXT("ROTATION", "rotation", rotationOf(disk)),
    TEXT("POWER", "power state", powerOf(disk)),
    TEXT("HEALTH", "health", nameOf(disk.health.state)),
    TEXT("REASON", "reason", disk.health.reason),
    TEXT("SOURCE", "reported by", disk.health.source),
    NUMBER("SINCE", "since", health.since, timeWords),
    NUMBER("USED", "endurance used", readings.enduranceUsedPercent, percent),
    NUMBER("SPARE", "spare capacity", readings.sparePercent, percent),
    NUMBER("TEMP", "temperature, Celsius", readings.temperatureCelsius, digits),
    NUMBER("HOURS", "power-on hours", readings.powerOnHours, digits),
    NUMBER("CYCLES", "power cycles", readings.powerCycles, digits),
    NUMBER("MEDIA-ERR", "media errors", readings.mediaErrors, digits),
    NUMBER("REALLOC", "reallocated sectors", readings.reallocatedSectors, digits),
    NUMBER("PENDING", "pending sectors", readings.pendingSectors, digits),
    NUMBER("READ", "data read", readings.bytesRead, sizeWords),
    NUMBER("WRITTEN", "data written", readings.bytesWritten, sizeWords),
    NUMBER("FIRST-SEEN", "first seen", firstSeen, timeWords),
    NUMBER("ASKED", "last asked", lastAsked, timeWords),
};

#undef TEXT
#undef NUMBER

} // namespace

std::span<const DiskColumn> diskColumns()
{
    return kDiskColumns;
}

const DiskColumn *findDiskColumn(std::string_view name)
{
    const auto *const found =
        std::find_if(kDiskColumns.data(), kDiskColumns.data() + kDiskColumns.size(),
                     [name](const DiskColumn &column) { return sameIgnoringCase(column.name, name); });
    return found == kDiskColumns.data() + kDiskColumns.size() ? nullptr : found;
}

std::vector<std::string> diskColumnNames()
{
    std::vector<std::string> names;
    for (const DiskColumn &column : kDiskColumns) {
        names.emplace_back(column.name);
    }
    return names;
}

std::vector<const DiskColumn *> defaultDiskColumns(bool wide)
{
    static constexpr std::string_view kDefault[] = {"NODE",   "TRAN",   "SIZE", "MODEL",
                                                    "SERIAL", "HEALTH", "USED", "TEMP"};
    static constexpr std::string_view kWide[] = {"NODE",   "TRAN",   "ADDRESS", "BAY",  "SIZE",  "MODEL",
                                                 "SERIAL", "HEALTH", "USED",    "TEMP", "HOURS", "REASON"};
    std::vector<const DiskColumn *> columns;
    for (const std::string_view name :
         wide ? std::span<const std::string_view>(kWide) : std::span<const std::string_view>(kDefault)) {
        columns.push_back(findDiskColumn(name));
    }
    return columns;
}

void sortDisks(std::vector<Disk> &disks, const DiskColumn &column)
{
    std::stable_sort(disks.begin(), disks.end(), [&column](const Disk &a, const Disk &b) {
        if (column.key != nullptr) {
            const std::optional<double> first = column.key(a);
            const std::optional<double> second = column.key(b);
            return first && (!second || *first < *second);
        }
        const std::string first = column.text(a);
        const std::string second = column.text(b);
        return !first.empty() && (second.empty() || first < second);
    });
}

} // namespace tool

// SPDX-License-Identifier: Apache-2.0
#include "tavstrg/schema_words.h"

#include <array>
#include <optional>

namespace tool {
namespace {

constexpr std::array<SchemaWord, 2> kSwitch = {{{0, "Off"}, {1, "On"}}};
constexpr std::array<SchemaWord, 3> kInterfaceWords = {{{-1, "Unknown"}, {0, "SCSI"}, {1, "IDE"}}};
constexpr std::array<SchemaWord, 5> kScsiTypeWords = {
    {{0, "Hard disk"}, {1, "CD-ROM drive"}, {2, "Tape drive"}, {3, "Optical-memory drive"}, {4, "Other"}}};
constexpr std::array<SchemaWord, 3> kIdeTypeWords = {{{1, "Other"}, {2, "Hard disk"}, {3, "CD-ROM drive"}}};
constexpr std::array<SchemaWord, 3> kPositionWords = {{{1, "Unknown"}, {2, "Master"}, {3, "Slave"}}};
constexpr std::array<SchemaWord, 3> kSmartStates = {
    {{-1, "Not readable"}, {0, "No failure reported"}, {1, "Failure predicted"}}};
constexpr std::array<SchemaWord, 7> kLevels = {{{-1, "Not read"},
                                                {0, "No level"},
                                                {1, "Least left"},
                                                {2, "Little left"},
                                                {3, "Medium left"},
                                                {4, "Much left"},
                                                {5, "Most left"}}};
constexpr std::array<SchemaWord, 2> kThreadWords = {{{0, "Not running"}, {1, "Running"}}};

constexpr std::array<SchemaWord, 5> kIdentitySources = {
    {{0, "None"}, {1, "World wide name"}, {2, "Card identity"}, {3, "Serial number"}, {4, "Place"}}};
constexpr std::array<SchemaWord, 12> kTransports = {{{0, "Unknown"},
                                                     {1, "SATA"},
                                                     {2, "SAS"},
                                                     {3, "USB"},
                                                     {4, "NVMe"},
                                                     {5, "virtio"},
                                                     {6, "MMC"},
                                                     {7, "Fibre Channel"},
                                                     {8, "iSCSI"},
                                                     {9, "SCSI"},
                                                     {10, "Xen"},
                                                     {11, "Persistent memory"}}};
constexpr std::array<SchemaWord, 5> kPowerStates = {
    {{0, "Unknown"}, {1, "Active"}, {2, "Idle"}, {3, "Standby"}, {4, "Suspended"}}};
constexpr std::array<SchemaWord, 7> kHealthStates = {
    {{0, "Unknown"}, {1, "Good"}, {2, "Warning"}, {3, "Failing"}, {4, "Asleep"}, {5, "Unreadable"}, {6, "Off"}}};

constexpr std::array<SchemaProperty, 30> kProperties = {{
    {"TAV_StorageConfig", "MonitorCycle", {}, "Seconds", "s"},
    {"TAV_StorageConfig", "MonitorCycleMin", {}, "Seconds", "s"},
    {"TAV_StorageConfig", "MonitorCycleMax", {}, "Seconds", "s"},
    {"TAV_StorageConfig", "MonitorCycleDefault", {}, "Seconds", "s"},
    {"TAV_StorageConfig", "HardDiskSmartMode", kSwitch, nullptr, nullptr},
    {nullptr, "InterfaceType", kInterfaceWords, nullptr, nullptr},
    {"TAV_StorageSCSIDevice", "DeviceType", kScsiTypeWords, nullptr, nullptr},
    {"TAV_StorageIDEDevice", "DeviceType", kIdeTypeWords, nullptr, nullptr},
    {"TAV_StorageIDEDevice", "IDEConfiguration", kPositionWords, nullptr, nullptr},
    {"TAV_StorageHardDisk", "Capacity", {}, "MegaBytes", "MiB"},
    {"TAV_StorageHardDisk", "SmartStatus", kSmartStates, nullptr, nullptr},
    {"TAV_StorageLifeSpan", "EnduranceRemaining", kLevels, nullptr, nullptr},
    {"TAV_StorageThread", "ThreadRunning", kThreadWords, nullptr, nullptr},
    {"TAV_StorageDisk", "DiskIDSource", kIdentitySources, nullptr, nullptr},
    {"TAV_StorageDisk", "Transport", kTransports, nullptr, nullptr},
    {"TAV_StorageDisk", "SizeBytes", {}, "Bytes", "bytes"},
    {"TAV_StorageDisk", "LogicalBlockBytes", {}, "Bytes", "bytes"},
    {"TAV_StorageDisk", "PhysicalBlockBytes", {}, "Bytes", "bytes"},
    {"TAV_StorageDisk", "RotationsPerMinute", {}, "Revolutions per Minute", "rpm"},
    {"TAV_StorageDisk", "PowerState", kPowerStates, nullptr, nullptr},
    {"TAV_StorageDisk", "HealthState", kHealthStates, nullptr, nullptr},
    {"TAV_StorageDisk", "HealthSinceSeconds", {}, "Seconds", "s"},
    {"TAV_StorageDisk", "EnduranceUsedPercent", {}, "Percent", "%"},
    {"TAV_StorageDisk", "SparePercent", {}, "Percent", "%"},
    {"TAV_StorageDisk", "TemperatureCelsius", {}, "Degrees C", "C"},
    {"TAV_StorageDisk", "PowerOnHours", {}, "Hours", "h"},
    {"TAV_StorageDisk", "BytesRead", {}, "Bytes", "bytes"},
    {"TAV_StorageDisk", "BytesWritten", {}, "Bytes", "bytes"},
    {"TAV_StorageDisk", "FirstSeenSeconds", {}, "Seconds", "s"},
    {"TAV_StorageDisk", "LastAskedSeconds", {}, "Seconds", "s"},
}};

std::optional<int64_t> numberIn(const broker::Value &value)
{
    if (const auto *number = std::get_if<uint64_t>(&value.data)) {
        return static_cast<int64_t>(*number);
    }
    if (const auto *number = std::get_if<int64_t>(&value.data)) {
        return *number;
    }
    return std::nullopt;
}

const SchemaProperty *propertyOf(std::string_view className, std::string_view name)
{
    for (const SchemaProperty &property : kProperties) {
        if (name == property.name && (property.className == nullptr || className == property.className)) {
            return &property;
        }
    }
    return nullptr;
}

} // namespace

std::span<const SchemaProperty> schemaProperties()
{
    return kProperties;
}

std::string schemaMeaning(std::string_view className, std::string_view property, const broker::Value &value)
{
    const SchemaProperty *const known = propertyOf(className, property);
    const std::optional<int64_t> number = numberIn(value);
    if (known == nullptr || !number) {
        return "";
    }
    for (const SchemaWord &word : known->words) {
        if (word.code == *number) {
            return " (" + std::string(word.word) + ")";
        }
    }
    return known->printedUnit == nullptr ? "" : " " + std::string(known->printedUnit);
}

} // namespace tool

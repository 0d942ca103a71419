// SPDX-License-Identifier: Apache-2.0
// Logs of a description's disks: ATA device statistics (ACS-3, log 04h) and SCSI log pages (SPC-5, SBC-4).
#include "sim/description_parts.h"

#include <charconv>
#include <string>

namespace sim {

namespace {

struct Statistic {
    const char *name;
    uint8_t page;
    uint16_t offset;
};

constexpr Statistic kStatistics[] = {
    {"powerOnResets", 1, 8},       {"powerOnHours", 1, 16},       {"sectorsWritten", 1, 24},
    {"writeCommands", 1, 32},      {"sectorsRead", 1, 40},        {"readCommands", 1, 48},
    {"spindleHours", 3, 8},        {"headFlyingHours", 3, 16},    {"headLoads", 3, 24},
    {"reallocatedSectors", 3, 32}, {"uncorrectableErrors", 4, 8}, {"temperature", 5, 8},
    {"highestTemperature", 5, 32}, {"lowestTemperature", 5, 40},  {"percentageUsed", 7, 8},
};

void readStatistics(Fields fields, StatisticsDescription &statistics)
{
    statistics.supported = true;
    for (const Statistic &one : kStatistics) {
        if (fields.isNull(one.name)) {
            fields.text(one.name, "");
            statistics.values[{one.page, one.offset}] = std::nullopt;
        } else if (fields.has(one.name)) {
            const auto value = fields.number<int64_t>(one.name, 0);
            if (value >= int64_t{1} << 55 || value < -128) {
                fields.fail(one.name, "the number is out of range");
            }
            statistics.values[{one.page, one.offset}] = value;
        }
    }
    if (const std::optional<Fields> pages = fields.object("pages")) {
        for (auto &[page, bytes] : readPages(*pages)) {
            if (!bytes || bytes->size() > 512 || page > 0x1F) {
                fields.fail("pages", "expected at most 512 bytes, and pages up to 1F");
            }
            statistics.pages[page] = *bytes;
        }
    }
    fields.finish();
}

using Bytes = std::vector<uint8_t>;

// A log parameter with its code.
void addParameter(Bytes &page, uint16_t code, const Bytes &value)
{
    constexpr uint8_t kBinaryList = 3; // format and linking
    page.insert(page.end(), {static_cast<uint8_t>(code >> 8), static_cast<uint8_t>(code), kBinaryList,
                             static_cast<uint8_t>(value.size())});
    page.insert(page.end(), value.begin(), value.end());
}

Bytes bigEndian(uint32_t value)
{
    return {static_cast<uint8_t>(value >> 24), static_cast<uint8_t>(value >> 16), static_cast<uint8_t>(value >> 8),
            static_cast<uint8_t>(value)};
}

uint8_t degrees(Fields &fields, const char *name)
{
    constexpr uint8_t kUnknown = 0xFF;
    if (fields.isNull(name)) {
        fields.text(name, "");
        return kUnknown;
    }
    return fields.number<uint8_t>(name, 0);
}

void readTemperatures(Fields &fields, LogsDescription &logs)
{
    constexpr uint8_t kTemperature = 0x0D;
    Bytes page;
    if (fields.has("temperature")) {
        addParameter(page, 0, {0, degrees(fields, "temperature")});
    }
    if (fields.has("referenceTemperature")) {
        addParameter(page, 1, {0, degrees(fields, "referenceTemperature")});
    }
    if (!page.empty()) {
        logs.pages[kTemperature] = page;
    }
}

void readStartStop(Fields &fields, LogsDescription &logs)
{
    constexpr uint8_t kStartStop = 0x0E;
    Bytes page;
    const std::string date = fields.text("manufactured", "");
    if (!date.empty() && date.size() != 6) {
        fields.fail("manufactured", "expected year and week, such as \"202417\"");
    }
    if (!date.empty()) {
        addParameter(page, 1, {date.begin(), date.end()});
    }
    if (fields.has("startStopCycles")) {
        addParameter(page, 4, bigEndian(fields.number<uint32_t>("startStopCycles", 0)));
    }
    if (!page.empty()) {
        logs.pages[kStartStop] = page;
    }
}

void readScsiLogs(Fields fields, LogsDescription &logs)
{
    constexpr uint8_t kSolidState = 0x11;
    constexpr uint8_t kBackgroundScan = 0x15;
    readTemperatures(fields, logs);
    readStartStop(fields, logs);
    if (fields.has("percentageUsed")) {
        addParameter(logs.pages[kSolidState].emplace(), 1, {0, 0, 0, fields.number<uint8_t>("percentageUsed", 0)});
    }
    if (fields.has("powerOnHours")) {
        constexpr uint32_t kMostHours = 0xFFFFFFFF / 60;
        const auto hours = fields.number<uint32_t>("powerOnHours", 0);
        if (hours > kMostHours) {
            fields.fail("powerOnHours", "the number is out of range");
        }
        Bytes status = bigEndian(hours * 60);
        status.resize(12);
        addParameter(logs.pages[kBackgroundScan].emplace(), 0, status);
    }
    if (const std::optional<Fields> pages = fields.object("pages")) {
        for (auto &[page, bytes] : readPages(*pages)) {
            logs.pages[page] = bytes;
        }
    }
    fields.finish();
}

} // namespace

std::map<uint8_t, std::optional<std::vector<uint8_t>>> readPages(Fields fields)
{
    std::map<uint8_t, std::optional<std::vector<uint8_t>>> pages;
    for (const std::string &name : fields.names()) {
        if (name == "comment") {
            continue;
        }
        uint8_t page = 0;
        const char *const end = name.data() + name.size();
        const auto [rest, error] = std::from_chars(name.data(), end, page, 16);
        if (error != std::errc() || rest != end || name.size() != 2) {
            fields.fail(name, "expected a page by two hexadecimal digits, such as \"83\"");
        }
        if (fields.isNull(name.c_str())) {
            pages[page] = std::nullopt;
            continue;
        }
        std::vector<uint8_t> bytes = fields.bytes(name.c_str());
        if (bytes.size() > 0xFFFF) { // what the length of a page can say
            fields.fail(name, "expected at most 65535 bytes");
        }
        pages[page] = std::move(bytes);
    }
    return pages;
}

void readLogs(Fields &fields, DeviceDescription &device)
{
    if (const std::optional<Fields> statistics = fields.object("statistics")) {
        readStatistics(*statistics, device.statistics);
    }
    if (const std::optional<Fields> logs = fields.object("logs")) {
        readScsiLogs(*logs, device.logs);
    }
}

} // namespace sim

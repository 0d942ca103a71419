// SPDX-License-Identifier: Apache-2.0
#include "tavstrg/disk_metrics.h"

#include "runtime/field_text.h"

#include <gmock/gmock.h>

#include <cstring>
#include <fstream>
#include <map>
#include <regex>
#include <sstream>

namespace tool {
namespace {

using namespace tavstrg::disks;
using testing::HasSubstr;
using testing::Not;

// A disk that reports everything, as numbers that show their unit.
Disk wholeDisk(const char *id, const char *name)
{
    Disk disk{};
    tavstrg::copyText(disk.id, id);
    tavstrg::copyText(disk.name, name);
    tavstrg::copyText(disk.model, "A \"B\" \\ C");
    tavstrg::copyText(disk.serial, "S-1");
    disk.transport = Transport::sas;
    disk.pathCount = 2;
    disk.sizeBytes.set(4000787030016);
    disk.readings.enduranceUsedPercent.set(107);
    disk.readings.sparePercent.set(97);
    disk.readings.temperatureCelsius.set(-3);
    disk.readings.powerOnHours.set(2);
    disk.readings.powerCycles.set(5);
    disk.readings.mediaErrors.set(6);
    disk.readings.bytesRead.set(7);
    disk.readings.bytesWritten.set(8);
    disk.readings.reallocatedSectors.set(9);
    disk.readings.pendingSectors.set(10);
    setHealth(disk.health, HealthState::warning, "SMART attributes", "wears out");
    disk.health.since.set(1700000001);
    disk.lastAsked.set(1700000002);
    return disk;
}

const PassFigures kPass{true, 0.25, someOf<int64_t>(1700000003)};

TEST(DiskMetrics, EachValueIsInItsBaseUnit)
{
    const std::string text = diskMetricsText(std::vector<Disk>{wholeDisk("naa.1", "sda")}, kPass);
    for (const char *line : {
             "tavstrg_build_info{version=\"" TAV_VERSION "\"} 1\n",
             "tavstrg_pass_success 1\n",
             "tavstrg_pass_duration_seconds 0.250000\n",
             "tavstrg_last_success_timestamp_seconds 1700000003\n",
             "tavstrg_disks 1\n",
             "tavstrg_disk_health{disk=\"naa.1\",state=\"warning\"} 1\n",
             "tavstrg_disk_health{disk=\"naa.1\",state=\"failing\"} 0\n",
             "tavstrg_disk_health_since_timestamp_seconds{disk=\"naa.1\"} 1700000001\n",
             "tavstrg_disk_last_read_timestamp_seconds{disk=\"naa.1\"} 1700000002\n",
             "tavstrg_disk_size_bytes{disk=\"naa.1\"} 4000787030016\n",
             "tavstrg_disk_paths{disk=\"naa.1\"} 2\n",
             "tavstrg_disk_temperature_celsius{disk=\"naa.1\"} -3\n",
             "tavstrg_disk_endurance_used_ratio{disk=\"naa.1\"} 1.070000\n",
             "tavstrg_disk_spare_ratio{disk=\"naa.1\"} 0.970000\n",
             "tavstrg_disk_power_on_seconds_total{disk=\"naa.1\"} 7200\n",
             "tavstrg_disk_power_cycles_total{disk=\"naa.1\"} 5\n",
             "tavstrg_disk_media_errors_total{disk=\"naa.1\"} 6\n",
             "tavstrg_disk_read_bytes_total{disk=\"naa.1\"} 7\n",
             "tavstrg_disk_written_bytes_total{disk=\"naa.1\"} 8\n",
             "tavstrg_disk_reallocated_sectors{disk=\"naa.1\"} 9\n",
             "tavstrg_disk_pending_sectors{disk=\"naa.1\"} 10\n",
         }) {
        EXPECT_THAT(text, HasSubstr(line));
    }
}

// What changes when a disk moves is on one metric alone, or every series would begin again.
TEST(DiskMetrics, NameAndPlaceAreOnTheInfoMetricAlone)
{
    const std::string before = diskMetricsText(std::vector<Disk>{wholeDisk("naa.1", "sda")}, kPass);
    const std::string after = diskMetricsText(std::vector<Disk>{wholeDisk("naa.1", "sdq")}, kPass);
    EXPECT_THAT(after, HasSubstr("tavstrg_disk_info{disk=\"naa.1\",name=\"sdq\",transport=\"sas\",address=\"\","
                                 "adapter=\"\",bay=\"\",vendor=\"\",model=\"A \\\"B\\\" \\\\ C\",serial=\"S-1\","
                                 "firmware=\"\"} 1\n"));
    const auto without = [](const std::string &text) {
        return std::regex_replace(text, std::regex("tavstrg_disk_info\\{.*"), "");
    };
    EXPECT_EQ(without(before), without(after));
}

TEST(DiskMetrics, WhatADiskDoesNotReportIsAbsent)
{
    Disk disk{};
    tavstrg::copyText(disk.id, "naa.2");
    const std::string text = diskMetricsText(std::vector<Disk>{disk}, {true, 0.5, {}});
    EXPECT_THAT(text, HasSubstr("tavstrg_disk_health{disk=\"naa.2\",state=\"unknown\"} 1\n"));
    EXPECT_THAT(text, Not(HasSubstr("temperature")));
    EXPECT_THAT(text, Not(HasSubstr("since")));
    EXPECT_THAT(text, Not(HasSubstr("_total")));
}

TEST(DiskMetrics, BeforeTheFirstSuccessThereIsOnlyTheFailure)
{
    const std::string text = diskMetricsText({}, {false, 0.5, {}});
    EXPECT_THAT(text, HasSubstr("tavstrg_pass_success 0\n"));
    EXPECT_THAT(text, Not(HasSubstr("last_success")));
    EXPECT_THAT(text, Not(HasSubstr("tavstrg_disk")));
}

TEST(DiskMetrics, NoSeriesIsThereTwiceIfTwoDisksHaveOneIdentity)
{
    const std::string text =
        diskMetricsText(std::vector<Disk>{wholeDisk("naa.1", "sda"), wholeDisk("naa.1", "sdb")}, kPass);
    EXPECT_THAT(text, HasSubstr("name=\"sda\""));
    EXPECT_THAT(text, Not(HasSubstr("name=\"sdb\"")));
    EXPECT_THAT(text, HasSubstr("tavstrg_disks 1\n"));
}

// ---- docs/METRICS.md ----

struct Documented {
    std::string type;
    std::string unit;
    std::string meaning;
};

std::map<std::string, Documented> documentedMetrics()
{
    std::ifstream page(TAV_SOURCE_DIR "/docs/METRICS.md");
    const std::regex row(R"(\| `(tavstrg_[a-z_]+)` \| ([a-z]+) \| ([^|]+) \| ([^|]+) \|)");
    std::map<std::string, Documented> metrics;
    std::smatch match;
    for (std::string line; std::getline(page, line);) {
        if (std::regex_match(line, match, row)) {
            metrics[match[1]] = {match[2], match[3], match[4]};
        }
    }
    return metrics;
}

// The unit that the end of a metric's name says.
std::string unitOf(const std::string &name)
{
    static constexpr std::pair<std::string_view, std::string_view> kUnits[] = {
        {"_info", "1"},
        {"_health", "0 or 1"},
        {"_success", "0 or 1"},
        {"_timestamp_seconds", "seconds since 1970"},
        {"_seconds", "seconds"},
        {"_bytes", "bytes"},
        {"_celsius", "degrees Celsius"},
        {"_ratio", "ratio"},
        {"_sectors", "sectors"},
        {"_cycles", "cycles"},
        {"_errors", "errors"},
        {"_disks", "disks"},
        {"_paths", "paths"},
    };
    const std::string base = name.ends_with("_total") ? name.substr(0, name.size() - 6) : name;
    for (const auto &[end, unit] : kUnits) {
        if (base.ends_with(end)) {
            return std::string(unit);
        }
    }
    return "none";
}

TEST(MetricsPage, HasEachMetricWithItsTypeUnitAndLabels)
{
    const std::map<std::string, Documented> page = documentedMetrics();
    const std::vector<Metric> metrics = diskMetrics(std::vector<Disk>{wholeDisk("naa.1", "sda")}, kPass);
    EXPECT_EQ(page.size(), metrics.size());
    for (const Metric &metric : metrics) {
        const auto found = page.find(metric.name);
        ASSERT_NE(found, page.end()) << metric.name;
        EXPECT_EQ(found->second.type, typeOf(metric)) << metric.name;
        EXPECT_EQ(found->second.unit, unitOf(metric.name)) << metric.name;
        EXPECT_EQ(metric.counter, metric.name.ends_with("_total")) << metric.name;
        for (const auto &[label, value] : metric.samples.front().labels) {
            if (label != "disk") {
                EXPECT_THAT(found->second.meaning, HasSubstr("`" + std::string(label) + "`")) << metric.name;
            }
        }
    }
    for (auto state = static_cast<int>(HealthState::unknown); state <= static_cast<int>(HealthState::off); ++state) {
        const std::string word = nameOf(static_cast<HealthState>(state));
        EXPECT_THAT(page.at("tavstrg_disk_health").meaning, HasSubstr("`" + word + "`"));
        EXPECT_THAT(metricsText(metrics), HasSubstr("state=\"" + word + "\""));
    }
}

} // namespace
} // namespace tool

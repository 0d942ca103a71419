// SPDX-License-Identifier: Apache-2.0
#include "tavstrg/disk_columns.h"
#include "tavstrg/html.h"
#include "tavstrg/report_parts.h"
#include "tavstrg/words.h"

#include <algorithm>
#include <array>
#include <cinttypes>
#include <cstdio>

namespace tool {
namespace {

using namespace tavstrg::disks;

constexpr std::string_view kNothing = "<span class=\"soft\">\xE2\x80\x93</span>"; // what is absent is not 0

std::string orNothing(const char *text)
{
    return *text == '\0' ? std::string(kNothing) : escapedHtml(text);
}

std::string small(const std::string &text)
{
    return text.empty() ? "" : "<small>" + escapedHtml(text) + "</small>";
}

// A cell that is sorted by a number; without one by nothing.
template <class Number> std::string numberCell(const Maybe<Number> &key, const std::string &content)
{
    return "<td class=\"number\" data-key=\"" + (key ? std::to_string(key.value) : "") + "\">" +
           (content.empty() ? std::string(kNothing) : content) + "</td>";
}

// How far a value is on the way to where it is too much.
struct Scale {
    double most;    // the whole bar
    double warning; // from here on
    double failing;
};
constexpr Scale kWear{100, 90, 100};
constexpr Scale kHeat{80, 60, 75}; // degrees Celsius; the warnings are those of the alert TavstrgDiskHot
constexpr Scale kHeatOfNvme{90, 75, 85};

std::string barMarkup(double value, const Scale &scale, const std::string &words)
{
    constexpr double kWidth = 100;
    const double part = std::clamp(value / scale.most, 0.0, 1.0) * kWidth;
    const char *const state = value >= scale.failing ? " failing" : value >= scale.warning ? " warning" : "";
    char width[32];
    std::snprintf(width, sizeof width, "%.1f", part);
    return std::string("<span class=\"meter") + state + "\"><b>" + words +
           "</b><svg class=\"bar\" viewBox=\"0 0 100 8\" preserveAspectRatio=\"none\" aria-hidden=\"true\" "
           "xmlns=\"http://www.w3.org/2000/svg\"><rect class=\"all\" width=\"100\" height=\"8\"/><rect class=\"part\" "
           "width=\"" +
           width + "\" height=\"8\"/></svg></span>";
}

std::string stateCell(const Disk &disk)
{
    const std::string state = nameOf(disk.health.state);
    const bool plain = disk.health.state == HealthState::good;
    return "<td data-key=\"" + std::to_string(rankOf(disk.health.state)) + "\"><span class=\"state " + state + "\">" +
           signMarkup(disk.health.state) + state + "</span>" +
           (plain || disk.health.reason[0] == '\0'
                ? ""
                : "<span class=\"why\">" + escapedHtml(disk.health.reason) + "</span>") +
           "</td>";
}

std::string placeCell(const Disk &disk)
{
    const std::string address = *disk.address == '\0' ? "" : disk.address;
    if (disk.bay[0] == '\0') {
        return "<td>" + orNothing(disk.address) + small(address == disk.adapter ? "" : disk.adapter) + "</td>";
    }
    return "<td class=\"fixed\">" + escapedHtml(disk.bay) + small(address) + "</td>";
}

std::string modelCell(const Disk &disk)
{
    const std::string vendor = disk.vendor;
    const std::string firmware = disk.firmware[0] == '\0' ? "" : std::string("firmware ") + disk.firmware;
    return "<td>" + orNothing(disk.model) +
           small(vendor + (vendor.empty() || firmware.empty() ? "" : ", ") + firmware) + "</td>";
}

std::string wearCell(const Disk &disk)
{
    const auto &used = disk.readings.enduranceUsedPercent;
    return numberCell(used, used ? barMarkup(used.value, kWear, std::to_string(used.value) + " %") : "");
}

std::string heatCell(const Disk &disk)
{
    const auto &heat = disk.readings.temperatureCelsius;
    const Scale &scale = disk.transport == Transport::nvme ? kHeatOfNvme : kHeat;
    return numberCell(heat, heat ? barMarkup(heat.value, scale, std::to_string(heat.value) + " °C") : "");
}

std::string ageCell(const Disk &disk)
{
    const auto &hours = disk.readings.powerOnHours;
    if (!hours) {
        return numberCell(hours, "");
    }
    constexpr double kHoursOfYear = 8766;
    char years[32];
    std::snprintf(years, sizeof years, "%.1f years", static_cast<double>(hours.value) / kHoursOfYear);
    return numberCell(hours, std::to_string(hours.value) + " h" + small(years));
}

// Only what there is: "2 media errors, 8 reallocated"; 0 where the disk reports that it has none.
std::string errorCell(const Disk &disk)
{
    Maybe<uint64_t> all{};
    std::string text;
    const auto add = [&](const Maybe<uint64_t> &number, const std::string &words) {
        if (number) {
            all.set(all.orElse(0) + number.value);
            text += number.value == 0 ? "" : (text.empty() ? "" : "<br/>") + words;
        }
    };
    const Readings &readings = disk.readings;
    add(readings.mediaErrors, counted(readings.mediaErrors.value, "media error"));
    add(readings.reallocatedSectors, std::to_string(readings.reallocatedSectors.value) + " reallocated");
    add(readings.pendingSectors, std::to_string(readings.pendingSectors.value) + " pending");
    return numberCell(all, !text.empty() ? text : all ? "0" : "");
}

bool hasErrorCounts(const Disk &disk)
{
    return disk.readings.mediaErrors || disk.readings.reallocatedSectors || disk.readings.pendingSectors;
}

std::string sinceCell(const Disk &disk)
{
    return numberCell(disk.health.since, disk.health.since ? timeMarkup(disk.health.since.value) : "");
}

std::string diskCell(const Disk &disk)
{
    return "<th scope=\"row\">" + escapedHtml(disk.name) + small(nameOf(disk.transport)) + "</th>";
}

std::string serialCell(const Disk &disk)
{
    return "<td class=\"fixed\">" + orNothing(disk.serial) + small(disk.id) + "</td>";
}

std::string sizeCell(const Disk &disk)
{
    return numberCell(disk.sizeBytes, disk.sizeBytes ? findDiskColumn("SIZE")->text(disk) : "");
}

struct Column {
    std::string_view title;
    std::string (*cell)(const Disk &);
    bool (*known)(const Disk &) = nullptr; // the column is left out if no disk reports it; null: never
};
constexpr std::array<Column, 11> kTableColumns{
    {{"Disk", diskCell},
     {"Health", stateCell},
     {"Place", placeCell},
     {"Model", modelCell},
     {"Serial number, identity", serialCell},
     {"Size", sizeCell},
     {"Endurance used", wearCell, [](const Disk &disk) { return disk.readings.enduranceUsedPercent.known; }},
     {"Temperature", heatCell, [](const Disk &disk) { return disk.readings.temperatureCelsius.known; }},
     {"Powered", ageCell, [](const Disk &disk) { return disk.readings.powerOnHours.known; }},
     {"Errors", errorCell, hasErrorCounts},
     {"In this state since", sinceCell, [](const Disk &disk) { return disk.health.since.known; }}}};

std::vector<const Column *> columnsFor(const std::vector<Disk> &disks)
{
    std::vector<const Column *> columns;
    for (const Column &column : kTableColumns) {
        if (column.known == nullptr || std::any_of(disks.begin(), disks.end(), column.known)) {
            columns.push_back(&column);
        }
    }
    return columns;
}

} // namespace

std::string tableMarkup(const std::vector<Disk> &disks)
{
    std::string text = "<div class=\"scroll\" role=\"region\" aria-label=\"All disks\" tabindex=\"0\">\n"
                       "<table id=\"disks\">\n<caption><span>" +
                       counted(disks.size(), "disk") +
                       ". A dash: the disk does not report it. Errors: data that could not be corrected, sectors "
                       "reallocated, sectors pending.</span></caption>\n<thead><tr>";
    const std::vector<const Column *> columns = columnsFor(disks);
    for (const Column *column : columns) {
        text += "<th scope=\"col\">" + std::string(column->title) + "</th>";
    }
    text += "</tr></thead>\n<tbody>\n";
    for (size_t i = 0; i < disks.size(); ++i) {
        text += "<tr id=\"disk" + std::to_string(i) + "\">";
        for (const Column *column : columns) {
            text += column->cell(disks[i]);
        }
        text += "</tr>\n";
    }
    return text + "</tbody>\n</table>\n</div>\n";
}

} // namespace tool

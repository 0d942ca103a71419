// SPDX-License-Identifier: Apache-2.0
#include "compare/figures.h"

#include "compare/median.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <functional>
#include <nlohmann/json.hpp>
#include <set>

namespace compare {

namespace {

struct Column {
    const char *title;
    Contender contender;
};
constexpr std::array kSmartColumns = {Column{"a collection", Contender::collection},
                                      Column{"a collection, side by side", Contender::sideBySide},
                                      Column{"a process that collects once", Contender::providerProcess},
                                      Column{"`smartctl`", Contender::smartctl},
                                      Column{"`smartctl`, no database", Contender::smartctlBare},
                                      Column{"`smartctl`, 8 at once", Contender::smartctlParallel},
                                      Column{"`smartd`", Contender::smartd},
                                      Column{"`smartd`, registering", Contender::smartdStart}};
constexpr std::array kDisksColumns = {Column{"a pass over every disk", Contender::disks},
                                      Column{"a process that makes one pass", Contender::disksProcess},
                                      Column{"`smartctl -j -a`", Contender::smartctlAll},
                                      Column{"`smartctl -j -a`, 16 at once", Contender::smartctlAll16},
                                      Column{"`lsblk -O`", Contender::lsblk}};
constexpr std::array kDiscoveryColumns = {
    Column{"discovery", Contender::discovery}, Column{"a process that discovers once", Contender::discoveryProcess},
    Column{"a collection, SMART off", Contender::inventory}, Column{"`lsscsi`", Contender::lsscsi}};
constexpr const char *kNames[kContenders] = {
    "collection", "sideBySide",       "providerProcess", "smartctl",      "smartctlBare", "smartctlParallel",
    "disks",      "disksProcess",     "smartctlAll",     "smartctlAll16", "smartd",       "smartdStart",
    "discovery",  "discoveryProcess", "inventory",       "lsscsi",        "lsblk"};

using Value = std::string (*)(const Figures &);

std::string text(const char *format, double value)
{
    char buffer[64];
    std::snprintf(buffer, sizeof buffer, format, value);
    return buffer;
}

std::string milliseconds(double seconds)
{
    return text(seconds < 0.001 ? "%.3f" : seconds < 0.01 ? "%.2f" : seconds < 0.1 ? "%.1f" : "%.0f", seconds * 1e3);
}

template <size_t n>
std::string table(const Results &results, const std::set<Place> &places, const char *title,
                  const std::array<Column, n> &columns, Value value)
{
    std::string lines = std::string("\n") + title + "\n\n| disks | a host | latency |";
    for (const Column &column : columns) {
        lines += std::string(" ") + column.title + " |";
    }
    lines += "\n|---:|---:|---:|";
    for (size_t i = 0; i < n; ++i) {
        lines += "---:|";
    }
    bool any = false;
    for (const Place place : places) {
        std::string cells;
        bool some = false;
        for (const Column &column : columns) {
            const Figures *const figures = results.find(column.contender, place);
            const std::string cell = figures == nullptr ? "" : value(*figures);
            some |= !cell.empty();
            cells += " " + cell + " |";
        }
        any |= some;
        if (some) {
            lines += "\n| " + std::to_string(place.disks) + " | " + std::to_string(place.perHost) + " | " +
                     std::to_string(place.latencyMs) + " ms |" + cells;
        }
    }
    return any ? lines + "\n" : "";
}

std::string counted(long count)
{
    return count == 0 ? "" : std::to_string(count);
}

constexpr Value kCpu = [](const Figures &figures) { return milliseconds(figures.cpuSeconds); };
constexpr Value kWall = [](const Figures &figures) {
    return figures.wallSeconds == 0 ? "" : milliseconds(figures.wallSeconds);
};
constexpr Value kRawCpu = [](const Figures &figures) { return milliseconds(figures.rawCpuSeconds); };
constexpr Value kRawWall = [](const Figures &figures) { return milliseconds(figures.rawWallSeconds); };
constexpr Value kCalls = [](const Figures &figures) { return counted(figures.systemCalls); };
constexpr Value kPeak = [](const Figures &figures) {
    return figures.peakKb == 0 ? "" : text("%.1f", static_cast<double>(figures.peakKb) / 1024);
};

// A goal on a ratio, which a machine with other work to do misses no more than an idle one.
bool goal(const std::string &what, double seconds, const char *against, double otherSeconds, double share)
{
    const double ratio = otherSeconds <= 0 ? 0 : seconds / otherSeconds;
    const bool met = ratio <= share;
    std::printf("%s: %s: %s ms, %.3f times %s %s ms, at most %.3g times\n", met ? "reached" : "MISSED", what.c_str(),
                milliseconds(seconds).c_str(), ratio, against, milliseconds(otherSeconds).c_str(), share);
    return met;
}

std::string textOf(Place place)
{
    return " of " + std::to_string(place.disks) + (place.disks == 1 ? " disk at " : " disks at ") +
           std::to_string(place.latencyMs) + " ms, " + std::to_string(place.perHost) + " a host";
}

// One contender's figure is at most a share of another's, wherever both were measured.
struct Goal {
    Contender contender, other;
    const char *what, *against;
    double Figures::*figure;
    double share;
    int leastDisks;
    int leastLatencyMs = 0;
};
constexpr Goal kGoals[] = {
    {Contender::collection, Contender::smartctl, "CPU time of a collection", "smartctl's", &Figures::cpuSeconds, 0.1,
     1},
    {Contender::providerProcess, Contender::smartctl, "CPU time of a process that collects once", "smartctl's",
     &Figures::cpuSeconds, 0.1, 2}, // one disk does not make up for the start of a process
    {Contender::collection, Contender::smartd, "time of a collection", "smartd's", &Figures::wallSeconds, 1, 1},
    {Contender::providerProcess, Contender::smartd, "time of a process that collects once", "smartd's",
     &Figures::wallSeconds, 1, 1},
    // 1.2 s instead of 13 for 128 disks on 16 adapters. With the simulated machine, whose work in several threads at
    // once cannot be taken out.
    {Contender::sideBySide, Contender::collection, "time of a collection side by side", "a serial one's",
     &Figures::rawWallSeconds, 1.2 / 13, 128, 20},
    {Contender::disks, Contender::smartctlAll, "CPU time of a pass over every disk", "smartctl -j -a's",
     &Figures::cpuSeconds, 0.1, 1},
    {Contender::disks, Contender::smartctlAll16, "time of a pass over every disk", "smartctl -j -a's, 16 at once,",
     &Figures::rawWallSeconds, 1, 128, 2},
};

} // namespace

void Results::add(Contender contender, Place place, const std::vector<Cost> &costs, long systemCalls)
{
    const auto median = [&](double (*of)(const Cost &)) {
        std::vector<double> values;
        std::transform(costs.begin(), costs.end(), std::back_inserter(values), of);
        return medianOf(std::move(values));
    };
    Figures &figures = figures_[{place, contender}];
    figures.wallSeconds = median([](const Cost &cost) { return cost.wallSeconds; });
    figures.cpuSeconds = median([](const Cost &cost) { return cost.cpuSeconds; });
    figures.rawWallSeconds = median([](const Cost &cost) { return cost.rawWallSeconds; });
    figures.rawCpuSeconds = median([](const Cost &cost) { return cost.rawCpuSeconds; });
    if (contender == Contender::sideBySide) { // what the simulated machine takes in several threads at once overlaps
        figures.wallSeconds = figures.rawWallSeconds;
    }
    figures.commands = static_cast<unsigned>(median([](const Cost &cost) { return double(cost.commands); }));
    figures.peakKb = static_cast<long>(median([](const Cost &cost) { return static_cast<double>(cost.peakKb); }));
    figures.systemCalls = systemCalls;
}

const Figures *Results::find(Contender contender, Place place) const
{
    const auto found = figures_.find({place, contender});
    return found == figures_.end() ? nullptr : &found->second;
}

std::string Results::tables() const
{
    std::set<Place> places, quick; // quick: without latency
    for (const auto &[at, unused] : figures_) {
        places.insert(at.first);
        if (at.first.latencyMs == 0) {
            quick.insert(at.first);
        }
    }
    constexpr Value kCommands = [](const Figures &figures) { return std::to_string(figures.commands); };
    return table(*this, places, "CPU time, ms:", kSmartColumns, kCpu) +
           table(*this, places, "Time on the clock, ms:", kSmartColumns, kWall) +
           table(*this, places, "CPU time with the simulated machine, ms:", kSmartColumns, kRawCpu) +
           table(*this, places, "Time on the clock with the simulated machine, ms:", kSmartColumns, kRawWall) +
           table(*this, quick, "Commands that reach the disks:", kSmartColumns, kCommands) +
           table(*this, quick, "System calls:", kSmartColumns, kCalls) +
           table(*this, quick, "Peak memory of the process, MiB:", kSmartColumns, kPeak) +
           table(*this, places, "Every disk, CPU time, ms:", kDisksColumns, kCpu) +
           table(*this, places, "Every disk, time on the clock with the simulated machine, ms:", kDisksColumns,
                 kRawWall) +
           table(*this, quick, "Every disk, commands that reach the disks:", kDisksColumns, kCommands) +
           table(*this, quick, "Discovery, CPU time, ms:", kDiscoveryColumns, kCpu) +
           table(*this, quick, "Discovery, time on the clock, ms:", kDiscoveryColumns, kWall) +
           table(*this, quick, "Discovery, CPU time with the simulated machine, ms:", kDiscoveryColumns, kRawCpu) +
           table(*this, quick, "Discovery, commands that reach the disks:", kDiscoveryColumns, kCommands) +
           table(*this, quick, "Discovery, system calls:", kDiscoveryColumns, kCalls) +
           table(*this, quick, "Discovery, peak memory of the process, MiB:", kDiscoveryColumns, kPeak);
}

std::string Results::jsonLines() const
{
    std::string lines;
    for (const auto &[at, figures] : figures_) {
        lines += nlohmann::json{{"what", kNames[static_cast<size_t>(at.second)]},
                                {"disks", at.first.disks},
                                {"latencyMs", at.first.latencyMs},
                                {"perHost", at.first.perHost},
                                {"wallSeconds", figures.wallSeconds},
                                {"cpuSeconds", figures.cpuSeconds},
                                {"rawWallSeconds", figures.rawWallSeconds},
                                {"rawCpuSeconds", figures.rawCpuSeconds},
                                {"commands", figures.commands},
                                {"systemCalls", figures.systemCalls},
                                {"peakKb", figures.peakKb}}
                     .dump() +
                 "\n";
    }
    return lines;
}

// Seconds of CPU time for each disk beyond the one of the smallest machine; negative if there is no other machine.
double Results::perDisk(Contender contender) const
{
    const Figures *const one = find(contender, {1, 0});
    for (auto last = figures_.rbegin(); last != figures_.rend() && one != nullptr; ++last) {
        const auto &[place, which] = last->first;
        if (which == contender && place.latencyMs == 0 && place.perHost == Place{}.perHost && place.disks > 1) {
            return (last->second.cpuSeconds - one->cpuSeconds) / (place.disks - 1);
        }
    }
    return -1;
}

bool Results::goals() const
{
    bool reached = true;
    for (const auto &[at, figures] : figures_) {
        const auto &[place, contender] = at;
        for (const Goal &wanted : kGoals) {
            const Figures *const other = find(wanted.other, place);
            if (wanted.contender == contender && other != nullptr && place.disks >= wanted.leastDisks &&
                place.latencyMs >= wanted.leastLatencyMs) {
                reached &= goal(wanted.what + textOf(place), figures.*wanted.figure, wanted.against,
                                other->*wanted.figure, wanted.share);
            }
        }
    }
    for (const Contender contender : {Contender::discovery, Contender::discoveryProcess}) {
        if (perDisk(contender) < 0 || perDisk(Contender::lsscsi) < 0) {
            continue; // not measured for two numbers of disks
        }
        reached &= goal(std::string("CPU time of each further disk, ") + kNames[static_cast<size_t>(contender)],
                        perDisk(contender), "lsscsi's", perDisk(Contender::lsscsi), 1);
    }
    return reached;
}

} // namespace compare

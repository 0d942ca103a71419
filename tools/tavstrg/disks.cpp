// SPDX-License-Identifier: Apache-2.0
#include "tavstrg/disks.h"

#include "tavstrg/collection.h"
#include "tavstrg/disk_metrics.h"
#include "tavstrg/disk_text.h"
#include "tavstrg/failure.h"
#include "tavstrg/json.h"
#include "tavstrg/nearest.h"
#include "tavstrg/report.h"
#include "tavstrg/words.h"

#include "disks/book/book_file.h"
#include "disks/find/find.h"
#include "disks/identity/identity.h"
#include "disks/pass/pass.h"

#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <ctime>
#include <filesystem>

namespace tool {
namespace {

using namespace tavstrg::disks;

void askDisks(Array<Disk> &disks)
{
    if (!Pass().run(disks)) {
        throw Failure("disks: not enough memory to ask them");
    }
    nameAskedDisks(disks);
}

std::string explanationOf(FindResult result)
{
    return result == FindResult::notReadable
               ? "No disk can be seen: /sys/block cannot be read; sysfs is not mounted, or hidden in this container."
               : "This machine has no disk: /sys/block has nothing but virtual devices and drives without a medium.";
}

size_t countOf(const DiskReport &report, const char *reason)
{
    return static_cast<size_t>(std::count_if(report.disks.begin(), report.disks.end(), [reason](const Disk &disk) {
        return disk.health.state == HealthState::unknown && std::string_view(disk.health.reason).starts_with(reason);
    }));
}

void addNotes(DiskReport &report, FindResult result)
{
    if (const size_t refused = countOf(report, "not permitted"); refused != 0) {
        report.notes.push_back(counted(refused, "disk") + " could not be asked: that needs root.");
        report.permitted = refused != report.disks.size();
    }
    if (const size_t nodes = countOf(report, "there is no node"); nodes != 0) {
        report.notes.push_back(counted(nodes, "disk") +
                               " could not be asked: the node in /dev is missing, as in many containers.");
    }
    if (result == FindResult::tooMany) {
        report.notes.push_back("There are more disks than these " + std::to_string(kMostDisks) + ".");
    }
}

void noteReading(BookRead read, const Arguments &arguments, int error, DiskReport &report)
{
    if (read == BookRead::failed) {
        throw Failure(arguments.book + ": " + std::strerror(error));
    }
    const std::string book = printable(arguments.book);
    if (read == BookRead::movedAside) {
        report.notes.push_back(book + " was damaged; it is " + book + ".damaged now, and begun again.");
    } else if (read == BookRead::movedNewer) {
        report.notes.push_back(book + " is of a later version; it is " + book + ".newer now, and begun again.");
    }
}

void remember(Array<Disk> &disks, const Arguments &arguments, DiskReport &report)
{
    Book book;
    int error = 0;
    noteReading(readBook(arguments.book.c_str(), book, error), arguments, error, report);
    Array<Event> events;
    if (!enterPass(book, disks, std::time(nullptr), events)) {
        throw Failure("disks: not enough memory to remember them");
    }
    for (const Event &event : events) {
        report.notes.push_back("Changed: " + eventWords(event) + ".");
    }
    error = saveBook(arguments.book.c_str(), book);
    if (error != 0) {
        throw Failure(arguments.book + ": " + std::strerror(error));
    }
}

std::string note(const DiskReport &report)
{
    std::string text = report.explanation;
    for (const std::string &one : report.notes) {
        text += (text.empty() ? "" : "\n") + one;
    }
    return text;
}

std::vector<const DiskColumn *> chosenColumns(const Arguments &arguments)
{
    if (arguments.columns.empty()) {
        return defaultDiskColumns(arguments.wide);
    }
    std::vector<const DiskColumn *> columns;
    for (const std::string &name : arguments.columns) {
        columns.push_back(findDiskColumn(name));
    }
    return columns;
}

// What follows the table: why disks are as they are, how many, and what could not be seen.
std::string belowTable(const DiskReport &report, const TextStyle &style)
{
    const std::string text = diskHealthText(report, style);
    return report.disks.empty() ? text : "\n" + text;
}

std::vector<Disk> shownDisks(const DiskReport &report, const Arguments &arguments)
{
    std::vector<Disk> shown = report.disks;
    if (arguments.failing) {
        std::erase_if(shown, [](const Disk &disk) { return !needsAttention(disk.health.state); });
    }
    if (!arguments.sort.empty()) {
        sortDisks(shown, *findDiskColumn(arguments.sort));
    }
    return shown;
}

Outcome list(const DiskReport &report, const Arguments &arguments, const TextStyle &style)
{
    const std::vector<Disk> shown = shownDisks(report, arguments);
    if (arguments.json) {
        return {kDone, disksJson(report, shown), ""};
    }
    DiskTable table{chosenColumns(arguments), 0, arguments.header};
    if (arguments.csv) {
        return {kDone, diskCsv(shown, table.columns, table.header), note(report)};
    }
    const bool chosen = !arguments.columns.empty();
    table.width = chosen ? 0 : arguments.wide ? kWideTableWidth : kTableWidth;
    const std::string text = shown.empty() ? "" : diskTable(shown, table, style);
    if (chosen || !arguments.header) {
        return {kDone, text, note(report)};
    }
    return {kDone, text + belowTable(report, style), ""};
}

Outcome one(const DiskReport &report, const Arguments &arguments, const TextStyle &style)
{
    const Disk *const disk = findDisk(report.disks, arguments.disk);
    if (disk == nullptr) {
        std::vector<std::string> names;
        for (const Disk &each : report.disks) {
            names.insert(names.end(), {each.id, each.name, each.serial});
        }
        const std::string meant = nearest(arguments.disk, names);
        throw Failure("disk: no disk \"" + printable(arguments.disk) + "\"" +
                      (meant.empty() ? "" : "; did you mean " + meant + "?"));
    }
    return {kDone, arguments.json ? diskJson(report, *disk) : diskPage(*disk, style), ""};
}

Outcome health(const DiskReport &report, const Arguments &arguments, const TextStyle &style)
{
    if (!report.permitted) {
        throw Failure("health: " + note(report));
    }
    return {statusOfDisks(report.disks), arguments.json ? diskHealthJson(report) : diskHealthText(report, style), ""};
}

Outcome metrics(const DiskReport &report, const Arguments &arguments)
{
    if (!report.permitted) {
        throw Failure("metrics: " + note(report));
    }
    PassFigures pass{true, report.collection.seconds, someOf(static_cast<int64_t>(report.collection.time))};
    if (!arguments.fromBook.empty()) {
        pass.seconds.reset(); // the book does not know it
    }
    const std::vector<Metric> metrics = diskMetrics(report.disks, pass);
    return {kDone, arguments.json ? metricsJson(metrics) : metricsText(metrics), ""};
}

} // namespace

std::string eventWords(const Event &event)
{
    const std::string disk = std::string(event.name) + (event.serial[0] == '\0' ? "" : ", serial ") + event.serial;
    switch (event.kind) {
    case EventKind::added:
        return disk + ": added";
    case EventKind::removed:
        return disk + ": removed";
    case EventKind::replaced:
        return disk + ": replaces " + (event.otherSerial[0] == '\0' ? event.otherId : event.otherSerial);
    case EventKind::readable:
        return disk + ": answers again";
    default:
        return disk + ": " + nameOf(event.kind) + ", " + event.reason;
    }
}

bool needsAttention(HealthState state)
{
    return state == HealthState::warning || state == HealthState::failing || state == HealthState::unreadable;
}

int statusOfDisks(const std::vector<Disk> &disks)
{
    int status = kDone;
    for (const Disk &disk : disks) {
        const HealthState state = disk.health.state;
        const bool fails = state == HealthState::failing || state == HealthState::unreadable;
        status = std::max(status, fails ? kDiskFails : state == HealthState::warning ? kDiskWarns : kDone);
    }
    return status;
}

std::string healthSummary(const std::vector<Disk> &disks)
{
    static constexpr HealthState kOrder[] = {HealthState::failing, HealthState::unreadable, HealthState::warning,
                                             HealthState::good,    HealthState::asleep,     HealthState::off,
                                             HealthState::unknown};
    std::string text = counted(disks.size(), "disk");
    const char *between = ": ";
    for (const HealthState state : kOrder) {
        const auto number =
            std::count_if(disks.begin(), disks.end(), [state](const Disk &disk) { return disk.health.state == state; });
        if (number != 0) {
            text += between + std::to_string(number) + " " + nameOf(state);
            between = ", ";
        }
    }
    return text;
}

const Disk *findDisk(const std::vector<Disk> &disks, const std::string &name)
{
    const std::string node = name.starts_with("/dev/") ? name.substr(5) : name;
    const Disk *bySerial = nullptr;
    size_t sameSerial = 0;
    for (const Disk &disk : disks) {
        bool path = node == disk.name;
        for (uint32_t i = 0; i < std::min<uint32_t>(disk.pathCount, kKeptPaths); ++i) {
            path = path || node == disk.paths[i];
        }
        if (path || name == disk.id) {
            return &disk;
        }
        if (name == disk.serial) {
            bySerial = &disk;
            ++sameSerial;
        }
    }
    return sameSerial == 1 ? bySerial : nullptr;
}

DiskReport collectDisks(const Arguments &arguments)
{
    DiskReport report;
    report.machine = std::filesystem::path(arguments.machine).filename().string();
    Array<Disk> disks;
    FindResult result{};
    {
        const Stopwatch stopwatch(report.collection);
        result = findDisks(disks);
        if (result == FindResult::noMemory) {
            throw Failure("disks: not enough memory to find them");
        }
        askDisks(disks);
    }
    if (!arguments.book.empty()) {
        remember(disks, arguments, report);
    }
    report.disks.assign(disks.begin(), disks.end());
    if (report.disks.empty()) {
        report.explanation = explanationOf(result);
        report.permitted = result != FindResult::notReadable;
    }
    addNotes(report, result);
    return report;
}

Outcome runDisks(const Arguments &arguments, const TextStyle &style)
{
    const DiskReport report = arguments.fromBook.empty() ? collectDisks(arguments) : savedDisks(arguments);
    switch (arguments.command) {
    case Command::disk:
        return one(report, arguments, style);
    case Command::health:
        return health(report, arguments, style);
    case Command::metrics:
        return metrics(report, arguments);
    case Command::report:
        return {kDone, reportPage(report), ""};
    default:
        return list(report, arguments, style);
    }
}

} // namespace tool

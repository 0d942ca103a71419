// SPDX-License-Identifier: Apache-2.0
#include "tavstrg/alert.h"

#include "tavstrg/colour.h"
#include "tavstrg/json_document.h"
#include "tavstrg/words.h"
#include "tavstrg/wrap.h"

#include <array>
#include <charconv>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <string_view>

namespace tool {
namespace {

struct Event {
    uint32_t id;
    const char *name; // for programs
    const char *words;
    int level; // of remaining endurance; 0: the event is about something else
};
constexpr std::array<Event, 15> kEvents = {{
    {0x400407D0, "configurationChange", "storage configuration changed", 0},
    {0x800403E9, "smartError", "SMART predicts failure", 0},
    {0xC0040450, "lifeSpan", "life span now ", 1},
    {0x8004044F, "lifeSpan", "life span now ", 2},
    {0x8004044E, "lifeSpan", "life span now ", 3},
    {0x4004044D, "lifeSpan", "life span now ", 4},
    {0x4004044C, "lifeSpan", "life span now ", 5},
    {0x40040834, "diskAdded", "disk added", 0},
    {0x80040835, "diskRemoved", "disk removed", 0},
    {0x40040836, "diskReplaced", "disk replaced", 0},
    {0x80040837, "diskFailing", "disk predicts failure", 0},
    {0xC0040838, "diskUnreadable", "disk state unreadable", 0},
    {0x40040839, "diskReadable", "disk state readable again", 0},
    {0x8004083A, "diskWarning", "disk needs attention", 0},
    {0x4004083B, "diskGood", "disk good again", 0},
}};

struct Severity {
    int eventType;
    const char *word;
    Mark mark;
};
constexpr std::array<Severity, 3> kSeverities = {
    {{1, "error", Mark::failure}, {2, "warning", Mark::warning}, {4, "information", Mark::information}}};
constexpr Severity kUnknownSeverity = {0, "unknown", Mark::warning};
constexpr size_t kSeverityWidth = 11; // of the longest word

// Insertion strings that describe a disk. An event about a single disk has more: its serial number and others, and the
// disk may be gone.
constexpr size_t kDiskStrings = 2;

// The disk that an alert's first strings describe.
struct AlertDisk {
    unsigned device = 0; // Index of its SCSI device
    std::string name;    // vendor, model and firmware revision as far as known
    unsigned controller = 0;
    bool scsi = true;
    unsigned bus = 0, target = 0, lun = 0; // SCSI
    int position = 0;                      // IDE, code of drivePositionWords
};

const Event *eventOf(const Alert &alert)
{
    for (const Event &event : kEvents) {
        if (event.id == alert.eventId) {
            return &event;
        }
    }
    return nullptr;
}

const Severity &severityOf(const Alert &alert)
{
    for (const Severity &severity : kSeverities) {
        if (severity.eventType == alert.eventType) {
            return severity;
        }
    }
    return kUnknownSeverity;
}

bool takeText(std::string_view &rest, std::string_view text)
{
    const bool there = rest.starts_with(text);
    rest.remove_prefix(there ? text.size() : 0);
    return there;
}

bool takeNumber(std::string_view &rest, unsigned &number)
{
    const auto [end, error] = std::from_chars(rest.data(), rest.data() + rest.size(), number);
    rest.remove_prefix(static_cast<size_t>(end - rest.data()));
    return error == std::errc();
}

bool takeScsiAddress(std::string_view text, AlertDisk &disk)
{
    return takeText(text, "Address(Controller-Bus-ID-LUN) : ") && takeNumber(text, disk.controller) &&
           takeText(text, "-") && takeNumber(text, disk.bus) && takeText(text, "-") && takeNumber(text, disk.target) &&
           takeText(text, "-") && takeNumber(text, disk.lun) && text.empty();
}

bool takeIdeAddress(std::string_view text, AlertDisk &disk)
{
    disk.scsi = false;
    if (!takeText(text, "Address(Controller-Drive) : ") || !takeNumber(text, disk.controller) || !takeText(text, "-")) {
        return false;
    }
    disk.position = text == "Master" ? 2 : text == "Slave" ? 3 : 1;
    return true;
}

std::optional<AlertDisk> diskOf(const Alert &alert)
{
    if (alert.strings.size() < kDiskStrings) {
        return std::nullopt;
    }
    AlertDisk disk;
    if (!takeScsiAddress(alert.strings[0], disk) && !takeIdeAddress(alert.strings[0], disk)) {
        return std::nullopt;
    }
    std::string_view name = alert.strings[1];
    if (!takeText(name, "Hard Disk[") || !takeNumber(name, disk.device) || !takeText(name, "] : ")) {
        return std::nullopt;
    }
    disk.name = printable(name);
    return disk;
}

// "sda, 0:0:0:0, serial S1; ", as far as known.
std::string placeWords(const Device &device)
{
    std::string words = printable(device.node);
    const std::string serial = device.serialWords();
    for (const std::string &part : {device.host ? device.address() : "", serial.empty() ? "" : "serial " + serial}) {
        words += (words.empty() || part.empty() ? "" : ", ") + part;
    }
    return words + (words.empty() ? "" : "; ");
}

std::string diskWords(const AlertDisk &disk, const std::string &place)
{
    const std::string address =
        disk.scsi ? std::to_string(disk.bus) + ":" + std::to_string(disk.target) + ":" + std::to_string(disk.lun)
                  : drivePositionWords(disk.position);
    return disk.name + (disk.name.empty() ? "(" : " (") + place + (disk.scsi ? "SCSI" : "IDE") + " device " +
           std::to_string(disk.device) + ", controller " + std::to_string(disk.controller) + ", " + address + ")";
}

std::string eventIdText(const Alert &alert)
{
    char text[16];
    std::snprintf(text, sizeof text, "0x%08X", alert.eventId);
    return text;
}

// "SMART predicts failure: ATA MODEL FW (SCSI device 1, controller 1, 0:0:0)"
std::string alertWords(const Alert &alert)
{
    const Event *event = eventOf(alert);
    std::string words = event == nullptr ? "event " + eventIdText(alert) : event->words;
    if (event != nullptr && event->level != 0) {
        words += lifeSpanWords(event->level);
    }
    if (const std::optional<AlertDisk> disk = diskOf(alert)) {
        words += ": " + diskWords(*disk, alert.device ? placeWords(*alert.device) : "");
        for (size_t i = kDiskStrings; i < alert.strings.size(); ++i) {
            words += (i == kDiskStrings ? "; " : ", ") + printable(alert.strings[i]);
        }
        return words;
    }
    if (alert.changes) {
        return words + (alert.changes->empty() ? "" : ": " + changeWords(*alert.changes));
    }
    for (size_t i = 0; i < alert.strings.size(); ++i) {
        words += (i == 0 ? ": " : ", ") + printable(alert.strings[i]);
    }
    return words;
}

// A time that is not understood is printed as it came.
std::string localTime(const std::string &utc)
{
    std::tm parts{};
    if (std::sscanf(utc.c_str(), "%d-%d-%dT%d:%d:%d", &parts.tm_year, &parts.tm_mon, &parts.tm_mday, &parts.tm_hour,
                    &parts.tm_min, &parts.tm_sec) != 6) {
        return printable(utc);
    }
    parts.tm_year -= 1900;
    parts.tm_mon -= 1;
    const time_t seconds = timegm(&parts);
    std::tm local{};
    char text[40];
    if (localtime_r(&seconds, &local) == nullptr ||
        std::strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S %z", &local) == 0) {
        return printable(utc);
    }
    return text;
}

Json changeJson(const Change &change)
{
    return {{"change", change.added ? "added" : "removed"},
            {"kind", change.kind},
            {"name", textOrNull(change.name)},
            {"serialNumber", textOrNull(change.serial)},
            {"node", nodePath(change.node)},
            {"hostNumber", hostNumber(change.host)},
            {"address", textOrNull(change.address)}};
}

Json changesJson(const Alert &alert)
{
    if (!alert.changes) {
        return nullptr;
    }
    Json json = Json::array();
    for (const Change &change : *alert.changes) {
        json.push_back(changeJson(change));
    }
    return json;
}

Json diskJson(const AlertDisk &disk, const Device &device)
{
    const Json address = {{"bus", disk.bus}, {"target", disk.target}, {"lun", disk.lun}};
    return {{"interface", disk.scsi ? "SCSI" : "IDE"},
            {"device", disk.device},
            {"name", disk.name},
            {"serialNumber", textOrNull(device.serialWords())},
            {"node", nodePath(device.node)},
            {"hostNumber", hostNumber(device.host)},
            {"controller", disk.controller},
            {"address", disk.scsi ? address : Json(nullptr)},
            {"position", disk.scsi ? Json(nullptr) : Json(drivePositionName(disk.position))}};
}

} // namespace

std::optional<Alert> parseAlert(const std::string &line)
{
    const Json json = Json::parse(line, nullptr, false);
    if (!json.is_object()) {
        return std::nullopt;
    }
    try {
        Alert alert;
        alert.time = json.at("time");
        const std::string id = json.at("eventId"); // "0x800403E9"
        const char *end = id.data() + id.size();
        const auto [rest, error] = std::from_chars(id.data() + (id.starts_with("0x") ? 2 : 0), end, alert.eventId, 16);
        alert.eventType = json.at("eventType");
        for (const Json &text : json.at("strings")) {
            alert.strings.push_back(text.is_null() ? std::string() : text.get<std::string>());
        }
        return error == std::errc() && rest == end ? std::optional(alert) : std::nullopt;
    } catch (const Json::exception &) { // a name that is missing or has another type
        return std::nullopt;
    }
}

bool isConfigurationChange(const Alert &alert)
{
    return alert.eventId == kEvents[0].id;
}

bool isAboutADisk(const Alert &alert)
{
    return alert.strings.size() == kDiskStrings && diskOf(alert).has_value();
}

bool addDevice(Alert &alert, const Inventory &inventory)
{
    const std::optional<AlertDisk> disk = diskOf(alert);
    if (!disk || !isAboutADisk(alert)) {
        return false;
    }
    const auto consider = [&alert, &disk](const std::vector<Device> &devices) {
        for (const Device &device : devices) {
            const bool sameKind = (device.interfaceType == kScsi) == disk->scsi;
            if (sameKind && device.index == disk->device && disk->name.starts_with(device.nameWords())) {
                alert.device = device;
            }
        }
    };
    for (const Controller &controller : inventory.controllers) {
        consider(controller.devices);
    }
    consider(inventory.devicesWithoutController);
    return alert.device.has_value();
}

std::string alertText(const Alert &alert, bool colour, size_t width)
{
    const Severity &severity = severityOf(alert);
    std::string word = severity.word;
    word.resize(kSeverityWidth, ' ');
    const std::string time = localTime(alert.time);
    const size_t begin = columnsOf(time) + 2 + kSeverityWidth + 2;
    const size_t hang = width >= begin + 2 * kNarrowest ? begin : kIndent;
    std::string text = hanging(time + "  " + word + "  " + alertWords(alert), hang, width);
    // Coloured afterwards: what colours takes no column. The time has no such word.
    if (const size_t at = text.find(severity.word); at != std::string::npos) {
        text.replace(at, std::strlen(severity.word), painted(severity.word, severity.mark, colour));
    }
    return text;
}

std::string alertJson(const Alert &alert)
{
    const Event *event = eventOf(alert);
    const std::optional<AlertDisk> disk = diskOf(alert);
    Json json = document("watch");
    json.update({{"time", alert.time},
                 {"severity", severityOf(alert).word},
                 {"eventId", eventIdText(alert)},
                 {"event", event == nullptr ? "unknown" : event->name},
                 {"level", event == nullptr || event->level == 0 ? Json(nullptr) : Json(event->level)},
                 {"disk", disk ? diskJson(*disk, alert.device.value_or(Device())) : Json(nullptr)},
                 {"changes", changesJson(alert)},
                 {"text", alertWords(alert)},
                 {"strings", alert.strings}});
    return writtenInOneLine(json);
}

} // namespace tool

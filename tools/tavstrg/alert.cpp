#include "alert.h"

#include "colour.h"
#include "json.h"
#include "words.h"

#include <nlohmann/json.hpp>

#include <array>
#include <charconv>
#include <cstdio>
#include <ctime>
#include <string_view>

namespace tool {
namespace {

using Json = nlohmann::ordered_json;

struct Event {
    uint32_t id;
    const char *name; // for programs
    const char *words;
    int level; // of remaining endurance; 0: the event is about something else
};
constexpr std::array<Event, 7> kEvents = {{
    {0x400407D0, "configurationChange", "storage configuration changed", 0},
    {0x800403E9, "smartError", "SMART predicts failure", 0},
    {0xC0040450, "lifeSpan", "life span now ", 1},
    {0x8004044F, "lifeSpan", "life span now ", 2},
    {0x8004044E, "lifeSpan", "life span now ", 3},
    {0x4004044D, "lifeSpan", "life span now ", 4},
    {0x4004044C, "lifeSpan", "life span now ", 5},
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

// The disk that an alert's two strings describe.
struct Disk {
    unsigned device = 0; // Index of its SCSI device
    std::string name;    // vendor, model and firmware revision as far as known
    unsigned controller = 0;
    bool scsi = true;
    unsigned bus = 0, target = 0, lun = 0; // SCSI
    std::string position;                  // IDE: "master", "slave"
};

const Event *eventOf(const Alert &alert)
{
    for (const Event &event : kEvents) {
        if (event.id == alert.eventId)
            return &event;
    }
    return nullptr;
}

const Severity &severityOf(const Alert &alert)
{
    for (const Severity &severity : kSeverities) {
        if (severity.eventType == alert.eventType)
            return severity;
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

bool takeScsiAddress(std::string_view text, Disk &disk)
{
    return takeText(text, "Address(Controller-Bus-ID-LUN) : ") && takeNumber(text, disk.controller) &&
           takeText(text, "-") && takeNumber(text, disk.bus) && takeText(text, "-") && takeNumber(text, disk.target) &&
           takeText(text, "-") && takeNumber(text, disk.lun) && text.empty();
}

bool takeIdeAddress(std::string_view text, Disk &disk)
{
    disk.scsi = false;
    if (!takeText(text, "Address(Controller-Drive) : ") || !takeNumber(text, disk.controller) || !takeText(text, "-"))
        return false;
    disk.position = text == "Master" ? "master" : text == "Slave" ? "slave" : "position unknown";
    return true;
}

std::optional<Disk> diskOf(const Alert &alert)
{
    if (alert.strings.size() != 2)
        return std::nullopt;
    Disk disk;
    if (!takeScsiAddress(alert.strings[0], disk) && !takeIdeAddress(alert.strings[0], disk))
        return std::nullopt;
    std::string_view name = alert.strings[1];
    if (!takeText(name, "Hard Disk[") || !takeNumber(name, disk.device) || !takeText(name, "] : "))
        return std::nullopt;
    disk.name = printable(name);
    return disk;
}

std::string diskWords(const Disk &disk)
{
    const std::string address =
        disk.scsi ? std::to_string(disk.bus) + ":" + std::to_string(disk.target) + ":" + std::to_string(disk.lun)
                  : disk.position;
    return disk.name + (disk.name.empty() ? "(" : " (") + (disk.scsi ? "SCSI" : "IDE") + " device " +
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
    if (event != nullptr && event->level != 0)
        words += lifeSpanWords(event->level);
    if (const std::optional<Disk> disk = diskOf(alert))
        return words + ": " + diskWords(*disk);
    for (size_t i = 0; i < alert.strings.size(); ++i)
        words += (i == 0 ? ": " : ", ") + printable(alert.strings[i]);
    return words;
}

// A time that is not understood stands as it came.
std::string localTime(const std::string &utc)
{
    std::tm parts{};
    if (std::sscanf(utc.c_str(), "%d-%d-%dT%d:%d:%d", &parts.tm_year, &parts.tm_mon, &parts.tm_mday, &parts.tm_hour,
                    &parts.tm_min, &parts.tm_sec) != 6)
        return printable(utc);
    parts.tm_year -= 1900;
    parts.tm_mon -= 1;
    const time_t seconds = timegm(&parts);
    std::tm local{};
    char text[32];
    if (localtime_r(&seconds, &local) == nullptr || std::strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S", &local) == 0)
        return printable(utc);
    return text;
}

Json diskJson(const Disk &disk)
{
    Json json = {{"interface", disk.scsi ? "SCSI" : "IDE"},
                 {"device", disk.device},
                 {"name", disk.name},
                 {"controller", disk.controller}};
    if (disk.scsi)
        json["address"] = {{"bus", disk.bus}, {"target", disk.target}, {"lun", disk.lun}};
    else
        json["position"] = disk.position;
    return json;
}

} // namespace

std::optional<Alert> parseAlert(const std::string &line)
{
    const Json json = Json::parse(line, nullptr, false);
    if (!json.is_object())
        return std::nullopt;
    try {
        Alert alert;
        alert.time = json.at("time");
        const std::string id = json.at("eventId"); // "0x800403E9"
        const char *end = id.data() + id.size();
        const auto [rest, error] = std::from_chars(id.data() + (id.starts_with("0x") ? 2 : 0), end, alert.eventId, 16);
        alert.eventType = json.at("eventType");
        for (const Json &text : json.at("strings"))
            alert.strings.push_back(text.is_null() ? std::string() : text.get<std::string>());
        return error == std::errc() && rest == end ? std::optional(alert) : std::nullopt;
    } catch (const Json::exception &) { // a name that is missing or has another type
        return std::nullopt;
    }
}

std::string alertText(const Alert &alert, bool colour)
{
    const Severity &severity = severityOf(alert);
    std::string word = severity.word;
    word.resize(kSeverityWidth, ' ');
    return localTime(alert.time) + "  " + painted(word, severity.mark, colour) + "  " + alertWords(alert) + "\n";
}

std::string alertJson(const Alert &alert)
{
    const Event *event = eventOf(alert);
    Json json = {{"formatVersion", kJsonFormatVersion},
                 {"time", alert.time},
                 {"severity", severityOf(alert).word},
                 {"eventId", eventIdText(alert)},
                 {"event", event == nullptr ? "unknown" : event->name}};
    if (event != nullptr && event->level != 0)
        json["level"] = event->level;
    if (const std::optional<Disk> disk = diskOf(alert))
        json["disk"] = diskJson(*disk);
    json["text"] = alertWords(alert);
    json["strings"] = alert.strings;
    return json.dump(-1, ' ', false, Json::error_handler_t::replace) + "\n";
}

} // namespace tool

// SPDX-License-Identifier: Apache-2.0
#include "tavstrg/monitor/report.h"

#include "tavstrg/disks.h"
#include "tavstrg/json_document.h"

#include "monitor/alert.h"

#include <iterator>

namespace tool::monitor {
namespace {

using tavstrg::disks::Event;
using tavstrg::disks::EventKind;

// Sorted as the kinds are. The identifiers of messages are random (systemd-id128 new); they stay for ever, for people
// search their journals by them.
constexpr KindEntry kKinds[] = {
    {EventKind::added, "7d291c856d354e89a9316cabbad894be", 6, TAV_ALERTID_DISK_ADDED},
    {EventKind::removed, "60d29c6ebda845b98044353fab18bb03", 4, TAV_ALERTID_DISK_REMOVED},
    {EventKind::replaced, "c9135986ef8c4a569149fbb2583252f4", 5, TAV_ALERTID_DISK_REPLACED},
    {EventKind::failing, "eaa245eef48e4ca5af6a57642a8f917c", 3, TAV_ALERTID_DISK_FAILING},
    {EventKind::warning, "415ceeab0c48460c8b8af2e129c3196d", 4, TAV_ALERTID_DISK_WARNING},
    {EventKind::good, "d7436fa352a24d57926075e5bb1be3c7", 5, TAV_ALERTID_DISK_GOOD},
    {EventKind::unreadable, "3bc8abffaa47470eadd91c3b3a773924", 3, TAV_ALERTID_DISK_UNREADABLE},
    {EventKind::readable, "216409e4240545fa972bc5817beec189", 5, TAV_ALERTID_DISK_READABLE},
};
static_assert(std::size(kKinds) == static_cast<size_t>(EventKind::readable) + 1);

constexpr const char *kRouteNames[] = {"journal", "hooks", "lines", "agent"};
static_assert(std::size(kRouteNames) == kRoutes);

void addText(std::vector<Field> &fields, const char *name, std::string_view value)
{
    if (!value.empty()) {
        fields.emplace_back(name, value);
    }
}

// The length of a value before it: 64 bits, the lowest byte first.
void addLength(std::string &entry, uint64_t length)
{
    for (int i = 0; i < 8; ++i) {
        entry += static_cast<char>(length >> (8 * i) & 0xFF);
    }
}

void addJson(Json &json, const char *name, std::string_view value)
{
    if (!value.empty()) {
        json[name] = value;
    }
}

} // namespace

const char *nameOf(Route route)
{
    return kRouteNames[static_cast<size_t>(route)];
}

const KindEntry &entryOf(EventKind kind)
{
    return kKinds[static_cast<size_t>(kind)];
}

const char *severityOf(int priority)
{
    return priority <= 3 ? "error" : priority == 4 ? "warning" : priority == 5 ? "notice" : "information";
}

std::vector<Field> fieldsOf(const Report &report, bool repeated)
{
    const Event &event = report.event;
    std::vector<Field> fields = {
        {"TAVSTRG_EVENT", std::to_string(report.number)},
        {"TAVSTRG_KIND", tavstrg::disks::nameOf(event.kind)},
        {"TAVSTRG_SEVERITY", severityOf(entryOf(event.kind).priority)},
        {"TAVSTRG_TIME", std::to_string(event.time)},
    };
    addText(fields, "TAVSTRG_DISK_ID", event.id);
    addText(fields, "TAVSTRG_DISK_NAME", event.name);
    addText(fields, "TAVSTRG_DISK_MODEL", report.model);
    addText(fields, "TAVSTRG_DISK_SERIAL", event.serial);
    addText(fields, "TAVSTRG_DISK_PLACE", report.place);
    addText(fields, "TAVSTRG_FORMER_ID", event.otherId);
    addText(fields, "TAVSTRG_FORMER_SERIAL", event.otherSerial);
    addText(fields, "TAVSTRG_REASON", event.reason);
    addText(fields, "TAVSTRG_REPEATED", repeated ? "1" : "");
    return fields;
}

std::vector<std::string> environmentOf(const Report &report, bool repeated)
{
    std::vector<std::string> environment = {"PATH=/usr/sbin:/usr/bin:/sbin:/bin", "LC_ALL=C.UTF-8",
                                            "TAVSTRG_MESSAGE=" + eventWords(report.event)};
    for (const auto &[name, value] : fieldsOf(report, repeated)) {
        environment.push_back(name + "=" + value);
    }
    return environment;
}

void addJournalField(std::string &entry, std::string_view name, std::string_view value)
{
    entry += name;
    if (value.find('\n') == std::string_view::npos) {
        entry += '=';
    } else {
        entry += '\n';
        addLength(entry, value.size());
    }
    entry += value;
    entry += '\n';
}

std::string journalEntry(const Report &report, bool repeated)
{
    const KindEntry &kind = entryOf(report.event.kind);
    std::string entry;
    addJournalField(entry, "MESSAGE", eventWords(report.event));
    addJournalField(entry, "MESSAGE_ID", kind.messageId);
    addJournalField(entry, "PRIORITY", std::to_string(kind.priority));
    addJournalField(entry, "SYSLOG_IDENTIFIER", "tavstrg-monitor");
    for (const auto &[name, value] : fieldsOf(report, repeated)) {
        addJournalField(entry, name, value);
    }
    return entry;
}

std::string jsonLine(const Report &report)
{
    const Event &event = report.event;
    Json json;
    json["formatVersion"] = kJsonFormatVersion;
    json["event"] = report.number;
    json["kind"] = tavstrg::disks::nameOf(event.kind);
    json["severity"] = severityOf(entryOf(event.kind).priority);
    json["time"] = utcTime(static_cast<double>(event.time));
    addJson(json, "message", eventWords(event));
    addJson(json, "diskId", event.id);
    addJson(json, "name", event.name);
    addJson(json, "model", report.model);
    addJson(json, "serialNumber", event.serial);
    addJson(json, "place", report.place);
    addJson(json, "formerId", event.otherId);
    addJson(json, "formerSerialNumber", event.otherSerial);
    addJson(json, "reason", event.reason);
    return writtenInOneLine(json);
}

} // namespace tool::monitor

// SPDX-License-Identifier: Apache-2.0
// An event of a disk on its way to the routes, and what each of them gets: fields and words. Pure.
#pragma once

#include "disks/book/book.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <iterator>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace tool::monitor {

enum class Route : uint8_t { journal, hooks, lines, agent };
constexpr size_t kRoutes = 4;
const char *nameOf(Route route); // as messages and the configuration have it

// How far an event is on a route.
enum class Delivery : char {
    unwanted = '-', // the route was switched off when it happened
    waiting = 'w',  // for its first attempt, or for another one
    sending = 's',  // being handed over: after a restart nobody knows whether it arrived
    done = 'd'
};

struct Report {
    uint64_t number; // from 1, in the order of the events
    tavstrg::disks::Event event;
    char model[sizeof tavstrg::disks::BookEntry::model];
    char place[sizeof tavstrg::disks::BookEntry::place];
    Delivery delivery[kRoutes];

    Delivery &on(Route route) { return delivery[static_cast<size_t>(route)]; }
    Delivery on(Route route) const { return delivery[static_cast<size_t>(route)]; }
};

// Whether it is still to be delivered on a route; whether on any.
constexpr bool isOpen(Delivery delivery)
{
    return delivery == Delivery::waiting || delivery == Delivery::sending;
}
constexpr bool isOpen(const Report &report)
{
    return std::any_of(std::begin(report.delivery), std::end(report.delivery),
                       [](Delivery one) { return isOpen(one); });
}

// What a kind of event is called by others.
struct KindEntry {
    tavstrg::disks::EventKind kind;
    const char *messageId; // of the journal: 32 hexadecimal digits, never changed
    int priority;          // syslog(3): 3 error, 4 warning, 5 notice, 6 information
    uint32_t alertId;      // of the agent, with its severity in the top two bits
};
const KindEntry &entryOf(tavstrg::disks::EventKind kind);

// "error", "warning", "notice" or "information".
const char *severityOf(int priority);

using Field = std::pair<std::string, std::string>;
// TAVSTRG_EVENT, TAVSTRG_KIND, TAVSTRG_SEVERITY, TAVSTRG_TIME, TAVSTRG_DISK_ID and so on, without empty ones.
// repeated: it may have been delivered already.
std::vector<Field> fieldsOf(const Report &report, bool repeated);

// The environment of an executable: the fields, the words, PATH and LC_ALL. "NAME=VALUE".
std::vector<std::string> environmentOf(const Report &report, bool repeated);

// An entry of the journal in its native protocol (systemd, "Native Journal Protocol"): the words as MESSAGE,
// MESSAGE_ID, PRIORITY, SYSLOG_IDENTIFIER, and the fields.
std::string journalEntry(const Report &report, bool repeated);
// One field of it. A value with a line end is framed by its length.
void addJournalField(std::string &entry, std::string_view name, std::string_view value);

// One JSON object in one line, which ends in a newline.
std::string jsonLine(const Report &report);

} // namespace tool::monitor

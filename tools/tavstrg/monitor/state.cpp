// SPDX-License-Identifier: Apache-2.0
#include "tavstrg/monitor/state.h"

#include "collect/base/text_scan.h"
#include "disks/book/book_file.h"
#include "runtime/checksum.h"
#include "runtime/field_text.h"

#include <algorithm>
#include <charconv>
#include <cinttypes>
#include <cstdio>
#include <iterator>

namespace tool::monitor {
namespace {

using tavstrg::copyText;
using tavstrg::takeLine;
using tavstrg::disks::Array;
using tavstrg::disks::Book;
using tavstrg::disks::BookEntry;
using tavstrg::disks::BookState;
using tavstrg::disks::Event;
using tavstrg::disks::EventKind;

constexpr std::string_view kTitle = "tavstrg monitor ";
constexpr std::string_view kNext = "next ";
constexpr std::string_view kEvent = "event ";
constexpr std::string_view kBook = "book";
constexpr std::string_view kEnd = "end ";
constexpr size_t kSumDigits = 16;
constexpr std::string_view kLetters = "-wsd";

std::string endLine(std::string_view body)
{
    tavstrg::Checksum sum;
    for (std::string_view line; takeLine(body, line);) {
        const bool isEvent = line.starts_with(kEvent);
        for (size_t i = 0; i < line.size(); ++i) {
            const bool isLetter = isEvent && i >= kEvent.size() && i < kEvent.size() + kRoutes && line[i] != '-';
            sum.add(isLetter ? static_cast<char>(Delivery::waiting) : line[i]);
        }
        sum.add('\n');
    }
    char text[32];
    std::snprintf(text, sizeof text, "end %016" PRIx64 "\n", sum.value());
    return text;
}

// ---- writing ----

void addField(std::string &line, const char *name, std::string_view value)
{
    line += (line.empty() ? "" : "\t") + std::string(name) + "=";
    // What is printable ASCII at its source has neither a tab nor a line end; a cut field would do no harm.
    std::copy_if(value.begin(), value.end(), std::back_inserter(line), [](char c) { return c != '\t' && c != '\n'; });
}

std::string eventFields(const Report &report)
{
    const Event &event = report.event;
    std::string line;
    addField(line, "number", std::to_string(report.number));
    addField(line, "kind", tavstrg::disks::nameOf(event.kind));
    addField(line, "time", std::to_string(event.time));
    addField(line, "id", event.id);
    addField(line, "name", event.name);
    addField(line, "serial", event.serial);
    addField(line, "model", report.model);
    addField(line, "place", report.place);
    addField(line, "otherid", event.otherId);
    addField(line, "otherserial", event.otherSerial);
    addField(line, "reason", event.reason);
    return line;
}

// ---- reading ----

template <class Number> bool parseNumber(std::string_view text, Number &number)
{
    const auto [stop, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    return error == std::errc() && stop == text.data() + text.size();
}

template <size_t N> bool parseText(std::string_view text, char (&field)[N])
{
    copyText(field, text);
    return text.size() < N;
}

bool parseKind(std::string_view text, EventKind &kind)
{
    for (int i = 0; i <= static_cast<int>(EventKind::readable); ++i) {
        kind = static_cast<EventKind>(i);
        if (text == tavstrg::disks::nameOf(kind)) {
            return true;
        }
    }
    return false;
}

bool parseField(std::string_view name, std::string_view value, Report &report)
{
    Event &event = report.event;
    const struct {
        std::string_view name;
        bool (*parse)(std::string_view, Report &);
    } numbers[] = {
        {"number", [](std::string_view text, Report &to) { return parseNumber(text, to.number); }},
        {"time", [](std::string_view text, Report &to) { return parseNumber(text, to.event.time); }},
        {"kind", [](std::string_view text, Report &to) { return parseKind(text, to.event.kind); }},
    };
    for (const auto &one : numbers) {
        if (one.name == name) {
            return one.parse(value, report);
        }
    }
    return name == "id"            ? parseText(value, event.id)
           : name == "name"        ? parseText(value, event.name)
           : name == "serial"      ? parseText(value, event.serial)
           : name == "model"       ? parseText(value, report.model)
           : name == "place"       ? parseText(value, report.place)
           : name == "otherid"     ? parseText(value, event.otherId)
           : name == "otherserial" ? parseText(value, event.otherSerial)
                                   : name == "reason" && parseText(value, event.reason);
}

std::string_view takeUntil(std::string_view &rest, char stop)
{
    const size_t end = rest.find(stop);
    const std::string_view taken = rest.substr(0, end);
    rest.remove_prefix(end == std::string_view::npos ? rest.size() : end + 1);
    return taken;
}

bool parseEvent(std::string_view line, Report &report)
{
    const std::string_view letters = takeUntil(line, ' ');
    if (letters.size() != kRoutes || letters.find_first_not_of(kLetters) != std::string_view::npos) {
        return false;
    }
    std::transform(letters.begin(), letters.end(), std::begin(report.delivery),
                   [](char letter) { return static_cast<Delivery>(letter); });
    while (!line.empty()) {
        std::string_view value = takeUntil(line, '\t');
        const std::string_view name = takeUntil(value, '=');
        if (!parseField(name, value, report)) {
            return false;
        }
    }
    return report.number != 0;
}

StateRead parseBookText(std::string_view text, Book &book)
{
    switch (tavstrg::disks::parseBook(text, book)) {
    case BookState::whole:
        return StateRead::whole;
    case BookState::newer:
        return StateRead::newer;
    case BookState::noMemory:
        return StateRead::noMemory;
    case BookState::damaged:
        break;
    }
    return StateRead::damaged;
}

// Everything between the title and the last line.
StateRead parseBody(std::string_view body, State &state)
{
    for (std::string_view line; takeLine(body, line);) {
        if (line == kBook) {
            return parseBookText(body, state.book);
        }
        if (line.starts_with(kNext)) {
            if (!parseNumber(line.substr(kNext.size()), state.next)) {
                return StateRead::damaged;
            }
            continue;
        }
        Report report{};
        if (!line.starts_with(kEvent) || !parseEvent(line.substr(kEvent.size()), report) ||
            state.reports.size() == kMostReports) {
            return StateRead::damaged;
        }
        state.reports.push_back(report);
    }
    return StateRead::damaged;
}

const BookEntry *findEntry(const Book &book, const char *id)
{
    const auto *const found = std::find_if(book.entries.begin(), book.entries.end(),
                                           [id](const BookEntry &entry) { return std::string_view(entry.id) == id; });
    return found == book.entries.end() ? nullptr : found;
}

Report reportOf(const Event &event, const Book &book)
{
    Report report{};
    report.event = event;
    if (const BookEntry *const entry = findEntry(book, event.id)) {
        copyText(report.model, entry->model);
        copyText(report.place, entry->place);
    }
    return report;
}

} // namespace

std::string lettersOf(const Report &report)
{
    std::string letters;
    for (const Delivery delivery : report.delivery) {
        letters += static_cast<char>(delivery);
    }
    return letters;
}

StateRead parseState(std::string_view text, State &state)
{
    std::string_view body = text;
    std::string_view line;
    int version = 0;
    if (!takeLine(body, line) || !line.starts_with(kTitle) || !parseNumber(line.substr(kTitle.size()), version)) {
        return StateRead::damaged;
    }
    if (version > kStateVersion) {
        return StateRead::newer;
    }
    constexpr size_t kEndSize = kEnd.size() + kSumDigits + 1;
    if (version < 1 || body.size() < kEndSize ||
        text.substr(text.size() - kEndSize) != endLine(text.substr(0, text.size() - kEndSize))) {
        return StateRead::damaged;
    }
    body.remove_suffix(kEndSize);
    return parseBody(body, state);
}

StateText composeState(const State &state)
{
    StateText composed;
    composed.text = std::string(kTitle) + std::to_string(kStateVersion) + "\n" + std::string(kNext) +
                    std::to_string(state.next) + "\n";
    for (const Report &report : state.reports) {
        composed.text += kEvent;
        composed.lettersAt.push_back(composed.text.size());
        composed.text += lettersOf(report) + " " + eventFields(report) + "\n";
    }
    Array<char> book;
    if (!tavstrg::disks::composeBook(state.book, book)) {
        return {};
    }
    composed.text += std::string(kBook) + "\n";
    composed.text.append(book.begin(), static_cast<size_t>(book.count()));
    composed.text += endLine(composed.text);
    return composed;
}

size_t addReports(State &state, const Array<Event> &events, const bool (&wanted)[kRoutes])
{
    std::erase_if(state.reports, [](const Report &report) { return !isOpen(report); });
    for (const Event &event : events) {
        Report report = reportOf(event, state.book);
        report.number = state.next++;
        std::transform(std::begin(wanted), std::end(wanted), std::begin(report.delivery),
                       [](bool one) { return one ? Delivery::waiting : Delivery::unwanted; });
        if (isOpen(report)) {
            state.reports.push_back(report);
        }
    }
    const size_t tooMany = state.reports.size() - std::min(state.reports.size(), kMostReports);
    state.reports.erase(state.reports.begin(), state.reports.begin() + static_cast<std::ptrdiff_t>(tooMany));
    return tooMany;
}

uint64_t standingOf(const Book &book)
{
    tavstrg::Checksum sum;
    for (const BookEntry &entry : book.entries) {
        for (const std::string_view text : {entry.id, entry.name, entry.place, entry.serial, entry.health.reason}) {
            sum.add(text);
            sum.add('\n');
        }
        sum.add(static_cast<char>(entry.present));
        sum.add(static_cast<char>(entry.unreadable));
        sum.add(static_cast<char>(entry.health.state));
        sum.add(static_cast<char>(entry.verdict));
    }
    return sum.value();
}

} // namespace tool::monitor

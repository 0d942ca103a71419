// SPDX-License-Identifier: Apache-2.0
#include "disks/book/book_file.h"

#include "disks/bytes.h"
#include "runtime/checksum.h"
#include "runtime/field_text.h"

#include <algorithm>
#include <charconv>
#include <cinttypes>
#include <cstdio>
#include <cstring>

namespace tavstrg::disks {
namespace {

constexpr size_t kLineRoom = 2048; // more than all fields together

bool append(Array<char> &text, std::string_view more)
{
    for (const char c : more) {
        char *const to = text.append();
        if (to == nullptr) {
            return false;
        }
        *to = c;
    }
    return true;
}

// ---- writing ----

// One line under construction. What does not fit is left out; kLineRoom is larger than any entry.
class Line {
public:
    void text(const char *key, const char *value) { add("%s=%s", key, value); }
    void number(const char *key, int64_t value) { add("%s=%" PRId64, key, value); }
    template <class Value> void maybe(const char *key, const Maybe<Value> &value)
    {
        if (value) {
            add("%s=%" PRIu64, key, static_cast<uint64_t>(value.value));
        }
    }
    std::string_view end()
    {
        text_[length_++] = '\n';
        return {text_, length_};
    }

private:
    template <class... Args> void add(const char *format, const char *key, Args... args)
    {
        const size_t room = sizeof text_ - 2 - length_;
        char *const at = text_ + length_ + (length_ == 0 ? 0 : 1);
        const int written = std::snprintf(at, room, format, key, args...);
        if (written >= 0 && static_cast<size_t>(written) < room) {
            text_[length_] = length_ == 0 ? text_[length_] : '\t';
            length_ = static_cast<size_t>(at - text_) + static_cast<size_t>(written);
        }
    }

    char text_[kLineRoom];
    size_t length_ = 0;
};

std::string_view composeEntry(const BookEntry &entry, Line &line)
{
    const Readings &readings = entry.readings;
    line.text("id", entry.id);
    if (entry.foundId[0] != '\0' && std::strcmp(entry.foundId, entry.id) != 0) {
        line.text("found", entry.foundId);
    }
    line.text("name", entry.name);
    line.text("model", entry.model);
    line.text("serial", entry.serial);
    line.text("place", entry.place);
    line.maybe("size", entry.sizeBytes);
    line.number("present", entry.present ? 1 : 0);
    line.number("first", entry.firstSeen);
    line.number("last", entry.lastSeen);
    line.maybe("asked", entry.lastAsked);
    line.text("health", nameOf(entry.health.state));
    line.text("source", entry.health.source);
    line.text("reason", entry.health.reason);
    line.maybe("since", entry.health.since);
    line.text("verdict", nameOf(entry.verdict));
    line.number("unreadable", entry.unreadable ? 1 : 0);
    line.maybe("used", readings.enduranceUsedPercent);
    line.maybe("spare", readings.sparePercent);
    line.maybe("celsius", readings.temperatureCelsius);
    line.maybe("hours", readings.powerOnHours);
    line.maybe("cycles", readings.powerCycles);
    line.maybe("errors", readings.mediaErrors);
    line.maybe("reallocated", readings.reallocatedSectors);
    line.maybe("pending", readings.pendingSectors);
    line.maybe("read", readings.bytesRead);
    line.maybe("written", readings.bytesWritten);
    return line.end();
}

// ---- reading ----

template <class Number> bool parseNumber(std::string_view text, Number &number)
{
    const auto [stop, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    return error == std::errc() && stop == text.data() + text.size();
}

template <class Value> bool parseMaybe(std::string_view text, Maybe<Value> &value)
{
    uint64_t number = 0;
    if (!parseNumber(text, number)) {
        return false;
    }
    value.set(static_cast<Value>(number));
    return true;
}

template <size_t N> bool parseText(std::string_view text, char (&field)[N])
{
    copyText(field, text);
    return text.size() < N && std::all_of(text.begin(), text.end(), isPrintable);
}

bool parseFlag(std::string_view text, bool &flag)
{
    flag = text == "1";
    return flag || text == "0";
}

bool parseState(std::string_view text, HealthState &state)
{
    char word[16];
    return parseText(text, word) && healthOfName(word, state);
}

bool parseReading(std::string_view key, std::string_view value, Readings &readings)
{
    if (key == "used") {
        return parseMaybe(value, readings.enduranceUsedPercent);
    }
    if (key == "spare") {
        return parseMaybe(value, readings.sparePercent);
    }
    if (key == "celsius") {
        return parseMaybe(value, readings.temperatureCelsius);
    }
    if (key == "hours") {
        return parseMaybe(value, readings.powerOnHours);
    }
    if (key == "cycles") {
        return parseMaybe(value, readings.powerCycles);
    }
    if (key == "errors") {
        return parseMaybe(value, readings.mediaErrors);
    }
    if (key == "reallocated") {
        return parseMaybe(value, readings.reallocatedSectors);
    }
    if (key == "pending") {
        return parseMaybe(value, readings.pendingSectors);
    }
    if (key == "read") {
        return parseMaybe(value, readings.bytesRead);
    }
    return key == "written" && parseMaybe(value, readings.bytesWritten);
}

bool parseHealth(std::string_view key, std::string_view value, BookEntry &entry)
{
    if (key == "health") {
        return parseState(value, entry.health.state);
    }
    if (key == "source") {
        return parseText(value, entry.health.source);
    }
    if (key == "reason") {
        return parseText(value, entry.health.reason);
    }
    if (key == "since") {
        return parseMaybe(value, entry.health.since);
    }
    if (key == "verdict") {
        return parseState(value, entry.verdict);
    }
    if (key == "unreadable") {
        return parseFlag(value, entry.unreadable);
    }
    return parseReading(key, value, entry.readings);
}

bool parseField(std::string_view key, std::string_view value, BookEntry &entry)
{
    if (key == "id") {
        return parseText(value, entry.id) && !value.empty();
    }
    if (key == "found") {
        return parseText(value, entry.foundId);
    }
    if (key == "name") {
        return parseText(value, entry.name);
    }
    if (key == "model") {
        return parseText(value, entry.model);
    }
    if (key == "serial") {
        return parseText(value, entry.serial);
    }
    if (key == "place") {
        return parseText(value, entry.place);
    }
    if (key == "size") {
        return parseMaybe(value, entry.sizeBytes);
    }
    if (key == "present") {
        return parseFlag(value, entry.present);
    }
    if (key == "first") {
        return parseNumber(value, entry.firstSeen);
    }
    if (key == "last") {
        return parseNumber(value, entry.lastSeen);
    }
    if (key == "asked") {
        return parseMaybe(value, entry.lastAsked);
    }
    return parseHealth(key, value, entry);
}

std::string_view takeUntil(std::string_view &rest, char stop)
{
    const size_t end = rest.find(stop);
    const std::string_view taken = rest.substr(0, end);
    rest.remove_prefix(end == std::string_view::npos ? rest.size() : end + 1);
    return taken;
}

bool parseEntry(std::string_view line, BookEntry &entry)
{
    while (!line.empty()) {
        std::string_view value = takeUntil(line, '\t');
        const std::string_view key = takeUntil(value, '=');
        if (!parseField(key, value, entry)) {
            return false;
        }
    }
    if (entry.foundId[0] == '\0') {
        copyText(entry.foundId, entry.id);
    }
    return entry.id[0] != '\0';
}

// The last line, which must be the only one after the entries, and whether it fits what is before it.
bool takeEnd(std::string_view &text, int32_t &count)
{
    if (!text.ends_with('\n')) {
        return false;
    }
    const size_t begin = text.substr(0, text.size() - 1).rfind('\n') + 1;
    char expected[64];
    const int length = std::snprintf(expected, sizeof expected, " %016" PRIx64 "\n", checksumOf(text.substr(0, begin)));
    std::string_view line = text.substr(begin);
    if (!line.starts_with("end ") || !line.ends_with(std::string_view(expected, static_cast<size_t>(length)))) {
        return false;
    }
    line = line.substr(4, line.size() - 4 - static_cast<size_t>(length));
    text = text.substr(0, begin);
    return parseNumber(line, count);
}

BookState parseEntries(std::string_view text, int32_t count, Book &book)
{
    while (!text.empty()) {
        BookEntry *const entry = book.entries.append();
        if (entry == nullptr) {
            return BookState::noMemory;
        }
        if (!parseEntry(takeUntil(text, '\n'), *entry) || book.entries.count() > kMostEntries) {
            return BookState::damaged;
        }
        const int32_t last = book.entries.count() - 1;
        if (last > 0 && std::strcmp(book.entries[last - 1].id, book.entries[last].id) >= 0) {
            return BookState::damaged;
        }
    }
    return book.entries.count() == count ? BookState::whole : BookState::damaged;
}

} // namespace

BookState parseBook(std::string_view text, Book &book)
{
    int32_t count = 0;
    const bool whole = takeEnd(text, count);
    int version = 0;
    std::string_view title = takeUntil(text, '\n');
    if (!title.starts_with(kBookTitle)) {
        return BookState::damaged;
    }
    title.remove_prefix(sizeof kBookTitle - 1);
    if (!parseNumber(title, version)) {
        return BookState::damaged;
    }
    if (version > kBookVersion) {
        return BookState::newer; // whose end may be another
    }
    if (!whole || version != kBookVersion) {
        return BookState::damaged;
    }
    const BookState state = parseEntries(text, count, book);
    if (state != BookState::whole) {
        book.entries.clear();
    }
    book.fresh = state != BookState::whole;
    return state;
}

bool composeBook(const Book &book, Array<char> &text)
{
    char line[64];
    std::snprintf(line, sizeof line, "%s%d\n", kBookTitle, kBookVersion);
    if (!append(text, line)) {
        return false;
    }
    for (const BookEntry &entry : book.entries) {
        Line built;
        if (!append(text, composeEntry(entry, built))) {
            return false;
        }
    }
    const uint64_t sum = checksumOf({text.begin(), static_cast<size_t>(text.count())});
    std::snprintf(line, sizeof line, "end %d %016" PRIx64 "\n", book.entries.count(), sum);
    return append(text, line);
}

} // namespace tavstrg::disks

// SPDX-License-Identifier: Apache-2.0
#include "monitor/disk_book.h"

#include "collect/base/text_scan.h"
#include "runtime/checksum.h"
#include "runtime/field_text.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdio>
#include <iterator>
#include <optional>
#include <type_traits>

using namespace tavstrg;

namespace {

constexpr std::string_view kMagic = "tavstrg-disks ";
constexpr std::string_view kEventWord = "event ";
constexpr std::string_view kEndWord = "end ";
constexpr std::string_view kEmpty = "-";
constexpr size_t kSumDigits = 16;

constexpr std::string_view kVerdicts[] = {"unknown", "good", "failing"};
constexpr std::string_view kReadings[] = {"never", "readable", "unreadable"};
constexpr std::string_view kChanges[] = {"added", "removed", "replaced", "failing", "unreadable", "readable"};
constexpr std::string_view kDeliveries = "wsd";

// Checksum of a file's text up to its last line; each event's letter counts as "w".
uint64_t sumOf(std::string_view text)
{
    Checksum sum;
    for (std::string_view line; takeLine(text, line);) {
        const bool isEvent = line.starts_with(kEventWord);
        for (size_t i = 0; i < line.size(); ++i) {
            sum.add(isEvent && i == kEventWord.size() ? static_cast<char>(Delivery::waiting) : line[i]);
        }
        sum.add('\n');
    }
    return sum.value();
}

bool isPlain(char c)
{
    return c > ' ' && c < '\x7F' && c != '%';
}

// Counts what is written; writes it if there is a place.
class Writer {
public:
    explicit Writer(char *text) : text_(text) {}
    size_t size() const { return size_; }

    void add(std::string_view part)
    {
        if (text_ != nullptr) {
            part.copy(text_ + size_, part.size());
        }
        size_ += part.size();
    }
    void add(uint64_t number, int base = 10, size_t digits = 1)
    {
        char text[24];
        const char *const end = std::to_chars(std::begin(text), std::end(text), number, base).ptr;
        const std::string_view shortest(text, static_cast<size_t>(end - text));
        for (size_t i = shortest.size(); i < digits; ++i) {
            add("0");
        }
        add(shortest);
    }
    // A field of a line, with the blank in front of it.
    void addField(std::string_view field)
    {
        add(" ");
        if (field.empty()) {
            add(kEmpty);
        }
        const bool looksEmpty = field == kEmpty;
        for (const char &c : field) {
            if (isPlain(c) && !looksEmpty) {
                add(std::string_view(&c, 1));
            } else {
                add("%");
                add(static_cast<unsigned char>(c), 16, 2);
            }
        }
    }

private:
    char *text_;
    size_t size_ = 0;
};

void writeFacts(Writer &out, const DiskFacts &facts)
{
    out.add(" ");
    out.add(facts.controller);
    out.addField(fieldText(facts.serial));
    out.addField(fieldText(facts.wwid));
    out.addField(fieldText(facts.model));
    out.addField(fieldText(facts.name));
    out.addField(fieldText(facts.address));
    out.addField(fieldText(facts.label));
}

// All but the sum. placed: called with each event and the offset of its letter.
template <class Placed> void writeBook(Writer &out, const DiskBook &book, Placed placed)
{
    out.add(kMagic);
    out.add(kBookVersion);
    out.add("\nnext ");
    out.add(book.next);
    out.add("\n");
    for (const KnownDisk &disk : book.disks.entries()) {
        out.add("disk");
        out.addField(kVerdicts[static_cast<size_t>(disk.verdict)]);
        out.addField(kReadings[static_cast<size_t>(disk.reading)]);
        writeFacts(out, disk.facts);
        out.add("\n");
    }
    for (const DiskEvent &event : book.events.entries()) {
        out.add(kEventWord);
        placed(event, out.size());
        const char letter = static_cast<char>(event.delivery);
        out.add(std::string_view(&letter, 1));
        out.add(" ");
        out.add(event.number);
        out.addField(changeName(event.change));
        writeFacts(out, event.disk);
        out.addField(fieldText(event.former));
        out.add("\n");
    }
}

// The fields of a line, one after the other. Once a field was wrong, all that follow are.
class Fields {
public:
    explicit Fields(std::string_view line) : rest_(line) {}
    bool good() const { return good_; }
    bool ended() const { return good_ && rest_.empty(); }
    bool fails() { return good_ = false; }

    std::string_view next()
    {
        const std::string_view field = rest_.substr(0, rest_.find(' '));
        good_ = good_ && !field.empty();
        rest_.remove_prefix(std::min(field.size() + 1, rest_.size()));
        return good_ ? field : std::string_view();
    }
    template <class Number> Number number()
    {
        const std::string_view field = next();
        Number value = 0;
        const auto [end, error] = std::from_chars(field.data(), field.data() + field.size(), value);
        good_ = good_ && error == std::errc() && end == field.data() + field.size();
        return value;
    }
    // The position of a word in its list.
    template <size_t N> size_t word(const std::string_view (&words)[N])
    {
        const auto *const found = std::ranges::find(words, next());
        good_ = good_ && found != std::end(words);
        return good_ ? static_cast<size_t>(found - std::begin(words)) : 0;
    }
    template <size_t N> void text(char (&out)[N])
    {
        std::string_view field = next();
        field = field == kEmpty ? std::string_view() : field;
        size_t length = 0;
        for (; good_ && !field.empty(); ++length) {
            const char c = character(field);
            good_ = good_ && length < N - 1 && c != '\0';
            if (good_) {
                out[length] = c;
            }
        }
    }

private:
    char character(std::string_view &field)
    {
        const char first = field.front();
        if (first != '%') {
            field.remove_prefix(1);
            good_ = good_ && isPlain(first);
            return first;
        }
        unsigned char byte = 0;
        const std::string_view digits = field.substr(1, 2);
        const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), byte, 16);
        good_ = good_ && digits.size() == 2 && error == std::errc() && end == digits.data() + digits.size();
        field.remove_prefix(1 + digits.size());
        return static_cast<char>(byte);
    }

    std::string_view rest_;
    bool good_ = true;
};

void readFacts(Fields &fields, DiskFacts &facts)
{
    facts.controller = fields.number<uint16_t>();
    fields.text(facts.serial);
    fields.text(facts.wwid);
    fields.text(facts.model);
    fields.text(facts.name);
    fields.text(facts.address);
    fields.text(facts.label);
}

bool readDisk(Fields fields, DiskBook &book)
{
    KnownDisk *const disk = book.disks.append();
    if (disk == nullptr) {
        return false;
    }
    disk->verdict = static_cast<Verdict>(fields.word(kVerdicts));
    disk->reading = static_cast<Reading>(fields.word(kReadings));
    readFacts(fields, disk->facts);
    return fields.ended();
}

bool readEvent(Fields fields, size_t letterAt, DiskBook &book)
{
    DiskEvent *const event = book.events.append();
    if (event == nullptr) {
        return false;
    }
    const std::string_view letter = fields.next();
    if (letter.size() != 1 || kDeliveries.find(letter.front()) == std::string_view::npos) {
        return false;
    }
    event->delivery = static_cast<Delivery>(letter.front());
    event->deliveryAt = letterAt;
    event->number = fields.number<uint32_t>();
    event->change = static_cast<DiskChange>(fields.word(kChanges));
    readFacts(fields, event->disk);
    fields.text(event->former);
    return fields.ended();
}

bool readLine(std::string_view line, size_t at, DiskBook &book)
{
    Fields fields(line);
    const std::string_view word = fields.next();
    if (word == "disk") {
        return readDisk(fields, book);
    }
    if (word == "event") {
        return readEvent(fields, at + kEventWord.size(), book);
    }
    if (word == "next") {
        book.next = fields.number<uint32_t>();
        return fields.ended();
    }
    return false;
}

// The version in the first line, which is taken off the text; nothing if the text is not a book.
std::optional<uint32_t> takeVersion(std::string_view &text)
{
    std::string_view line;
    if (!text.starts_with(kMagic) || !takeLine(text, line)) {
        return std::nullopt;
    }
    Fields fields(line.substr(kMagic.size()));
    const auto version = fields.number<uint32_t>();
    return fields.ended() ? std::optional(version) : std::nullopt;
}

// The text without its last line; empty unless that has the sum of the rest.
std::string_view checkedBody(std::string_view text)
{
    constexpr size_t kEndLine = kEndWord.size() + kSumDigits + 1;
    if (text.size() < kEndLine || !text.ends_with('\n')) {
        return {};
    }
    const std::string_view body = text.substr(0, text.size() - kEndLine);
    char expected[kEndLine + 1];
    std::snprintf(expected, sizeof expected, "end %016llx\n", static_cast<unsigned long long>(sumOf(body)));
    return body.ends_with('\n') && text.substr(body.size()) == expected ? body : std::string_view();
}

} // namespace

std::string_view tavstrg::changeName(DiskChange change)
{
    return kChanges[static_cast<size_t>(change)];
}

BookState tavstrg::parseBook(std::string_view text, DiskBook &book)
{
    std::string_view rest = text;
    const std::optional<uint32_t> version = takeVersion(rest);
    if (!version || *version == 0) {
        return BookState::damaged;
    }
    if (*version > kBookVersion) {
        return BookState::newer;
    }
    const std::string_view body = checkedBody(text);
    if (body.empty()) {
        return BookState::damaged;
    }
    rest = body.substr(text.size() - rest.size());
    const auto lines = static_cast<size_t>(std::ranges::count(rest, '\n'));
    if (!book.disks.reserve(lines) || !book.events.reserve(lines)) {
        return BookState::noMemory;
    }
    for (std::string_view line; takeLine(rest, line);) {
        if (!readLine(line, static_cast<size_t>(line.data() - text.data()), book)) {
            return BookState::damaged;
        }
    }
    return BookState::good;
}

size_t tavstrg::bookSize(const DiskBook &book)
{
    Writer out(nullptr);
    writeBook(out, book, [](const DiskEvent &, size_t) {});
    return out.size() + kEndWord.size() + kSumDigits + 1;
}

void tavstrg::composeBook(DiskBook &book, char *text)
{
    Writer out(text);
    const DiskEvent *const first = book.events.entries().data();
    writeBook(out, book, [&](const DiskEvent &event, size_t at) {
        book.events[static_cast<size_t>(&event - first)].deliveryAt = at;
    });
    const uint64_t sum = sumOf({text, out.size()});
    out.add(kEndWord);
    out.add(sum, 16, kSumDigits);
    out.add("\n");
}

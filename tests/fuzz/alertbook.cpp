// SPDX-License-Identifier: Apache-2.0
// The file of the alerts about single disks: what is read is written as it was read, and can be compared.
#include "fuzz/fuzz.h"
#include "monitor/disk_changes.h"

#include <cstdio>
#include <string>

using namespace tavstrg;

using fuzz::require;

namespace {

std::string composed(DiskBook &book)
{
    std::string text(bookSize(book), '\0');
    composeBook(book, text.data());
    return text;
}

// The input with the first and the last line of a book, which no fuzzer finds.
std::string whole(std::string_view lines)
{
    std::string body = "tavstrg-disks 1\n" + std::string(lines) + "\n";
    uint64_t sum = 0xcbf29ce484222325U;
    bool event = false;
    size_t column = 0;
    for (size_t i = 0; i < body.size(); ++i) {
        if (column == 0) {
            event = std::string_view(body).substr(i).starts_with("event ");
        }
        const char c = event && column == 6 && body[i] != '\n' ? 'w' : body[i];
        sum = (sum ^ static_cast<unsigned char>(c)) * 0x100000001b3U;
        column = body[i] == '\n' ? 0 : column + 1;
    }
    char end[32];
    std::snprintf(end, sizeof end, "end %016llx\n", static_cast<unsigned long long>(sum));
    return body + end;
}

void check(std::string_view text)
{
    const fuzz::Exact input(text);
    DiskBook book;
    if (parseBook(input.text(), book) != BookState::good) {
        return;
    }
    for (const DiskEvent &event : book.events.entries()) {
        require(event.deliveryAt < text.size() && text[event.deliveryAt] == static_cast<char>(event.delivery),
                "the letter of an event is where it is");
    }
    const std::string written = composed(book);
    DiskBook again;
    require(parseBook(written, again) == BookState::good && composed(again) == written, "what was written is read");
    DiskBook next;
    require(compareDisks(book, false, {}, next), "it can be compared");
    require(next.disks.size() == 0, "all disks are gone");
    require(next.next == book.next + static_cast<uint32_t>(book.disks.size()), "each gives an event");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    check(fuzz::textOf({data, size}));
    check(whole(fuzz::textOf({data, size})));
    return 0;
}

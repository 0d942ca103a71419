// SPDX-License-Identifier: Apache-2.0
// The book of disks: what was read is written as it was read. An input without its last line gets the right one.
#include "disks/book/book_file.h"
#include "fuzz/fuzz.h"

#include <string>

using namespace tavstrg::disks;

using fuzz::require;

namespace {

std::string textOf(const Book &book)
{
    Array<char> text;
    require(composeBook(book, text), "a book can be written");
    return {text.begin(), static_cast<size_t>(text.count())};
}

void checkBook(std::string_view text)
{
    Book book;
    if (parseBook(text, book) != BookState::whole) {
        require(book.entries.empty() && book.fresh, "a damaged book is begun again");
        return;
    }
    for (const BookEntry &entry : book.entries) {
        fuzz::requireTerminated(entry.id);
        fuzz::requireTerminated(entry.health.reason);
        require(entry.id[0] != '\0', "an entry has an identity");
    }
    const std::string written = textOf(book);
    Book again;
    require(parseBook(written, again) == BookState::whole && textOf(again) == written, "what was written is read");
}

// As the writer ends a file.
std::string ended(std::string_view text)
{
    uint64_t sum = 0xCBF29CE484222325;
    int entries = -1; // the title is a line too
    for (const char c : text) {
        sum = (sum ^ static_cast<uint8_t>(c)) * 0x00000100000001B3;
        entries += c == '\n' ? 1 : 0;
    }
    char line[64];
    std::snprintf(line, sizeof line, "end %d %016llx\n", entries, static_cast<unsigned long long>(sum));
    return std::string(text) + line;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const std::string_view text = fuzz::textOf({data, size});
    checkBook(text);
    checkBook(ended(text));
    return 0;
}

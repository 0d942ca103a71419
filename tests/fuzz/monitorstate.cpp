// SPDX-License-Identifier: Apache-2.0
// The state of the monitoring service: what was read is written as it was read. An input also gets what ends a file.
#include "fuzz/fuzz.h"
#include "tavstrg/monitor/state.h"

#include "collect/base/text_scan.h"
#include "disks/book/book_file.h"
#include "runtime/checksum.h"

#include <cinttypes>
#include <cstdio>
#include <string>

using namespace tool::monitor;

using fuzz::require;

namespace {

void checkState(std::string_view text)
{
    State state;
    if (parseState(text, state) != StateRead::whole) {
        return;
    }
    for (const Report &report : state.reports) {
        fuzz::requireTerminated(report.event.id);
        fuzz::requireTerminated(report.event.reason);
        fuzz::requireTerminated(report.model);
        require(report.number != 0, "an event has a number");
    }
    const std::string written = composeState(state).text;
    State again;
    require(parseState(written, again) == StateRead::whole && composeState(again).text == written,
            "what was written is read");
}

// As the writer ends a file: letters count as "w".
std::string ended(std::string_view text)
{
    tavstrg::disks::Array<char> book;
    require(tavstrg::disks::composeBook({}, book), "an empty book can be written");
    std::string whole(text);
    whole += "book\n";
    whole.append(book.begin(), static_cast<size_t>(book.count()));
    tavstrg::Checksum sum;
    std::string_view rest = whole;
    for (std::string_view line; tavstrg::takeLine(rest, line);) {
        for (size_t i = 0; i < line.size(); ++i) {
            const bool isLetter = line.starts_with("event ") && i >= 6 && i < 6 + kRoutes && line[i] != '-';
            sum.add(isLetter ? 'w' : line[i]);
        }
        sum.add('\n');
    }
    char end[32];
    std::snprintf(end, sizeof end, "end %016" PRIx64 "\n", sum.value());
    return whole + end;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const fuzz::Exact input(fuzz::textOf({data, size}));
    checkState(input.text());
    checkState(ended(input.text()));
    return 0;
}

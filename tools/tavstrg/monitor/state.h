// SPDX-License-Identifier: Apache-2.0
// What the service remembers: the book of the disks, and the events that are on their way. One text, saved as one file,
// so that a transition and its event are remembered together or not at all.
//
//   tavstrg monitor 1
//   next 18
//   event wwd- number=17<TAB>kind=failing<TAB>...     the letters are the deliveries on the routes
//   book
//   ...                                              as disks/book/book_file.h has it
//   end 0123456789abcdef                             FNV-1a of all before this line; letters count as "w"
//
// The letters are changed in place. Pure.
#pragma once

#include "tavstrg/monitor/report.h"

#include "disks/book/book.h"

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace tool::monitor {

constexpr int kStateVersion = 1;
constexpr size_t kMostReports = 1000; // on their way; of more, the oldest are given up

struct State {
    uint64_t next = 1; // number of the next event
    std::vector<Report> reports;
    tavstrg::disks::Book book;
};

enum class StateRead { whole, damaged, newer, noMemory };

// Reads a text into a new state, which is not to be used unless the text is whole.
StateRead parseState(std::string_view text, State &state);

// The text of a state, and for each report the offset of its letters. Empty if memory is short.
struct StateText {
    std::string text;
    std::vector<size_t> lettersAt;
};
StateText composeState(const State &state);

// The letters of a report, kRoutes of them.
std::string lettersOf(const Report &report);

// Turns the events of a pass into reports with numbers, for the routes that are wanted, and drops those that are done.
// Returns how many were given up because too many were on their way.
size_t addReports(State &state, const tavstrg::disks::Array<tavstrg::disks::Event> &events,
                  const bool (&wanted)[kRoutes]);

// Changes with everything but times and readings: who is there, where and in which state.
uint64_t standingOf(const tavstrg::disks::Book &book);

} // namespace tool::monitor

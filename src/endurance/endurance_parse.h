// SPDX-License-Identifier: Apache-2.0
// The lines of "tavm2ssd.inf": parsing without reading.
#pragma once

#include "endurance/endurance.h"

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace tavstrg {

constexpr std::string_view kEnduranceSection = "[Endurance Remaining]";
constexpr size_t kM2SSDLineBuffer = 128; // bytes with the terminator; the rest of a longer line counts as the next line
constexpr size_t kMaxM2SSDLines = 65536; // that are read: a file can be of any size

// Takes the next line off the front of a text as fgets does with the line buffer: at most 127 characters, with its
// newline when that is among them, and what follows a NUL dropped. False when nothing is left.
bool takeTableLine(std::string_view &rest, std::string_view &line);

// A line without the carriage returns and newlines at its end.
std::string_view withoutBreaks(std::string_view line);

constexpr size_t kM2SSDFields = 8;

// Splits at commas and line breaks; runs of them count as one. Returns the number of fields found, at most nine.
size_t splitTableLine(std::string_view line, std::string_view (&fields)[kM2SSDFields + 1]);

// What atoi makes of a text, without its undefined cases: a number outside 64 bits is cut to what 64 bits hold, and
// then the low 32 bits are taken.
int32_t numberOf(std::string_view text);

enum class TableLine {
    empty,         // or beginning with NUL
    outside,       // before the section
    sectionBegins, //
    sectionEnds,   // the next section begins: nothing behind it is read
    entry,         //
    otherFields,   // not eight fields
};

// Takes the lines of a file one after the other, so that each is judged by its section.
class EnduranceLines {
public:
    // What a line is; entry is filled for TableLine::entry alone.
    TableLine take(std::string_view line, M2SSDInf &entry);
    // Whether reading goes on: neither the next section nor an end of what is read was met.
    bool more() const { return !ended_ && lines_ < kMaxM2SSDLines; }

private:
    bool inSection_ = false;
    bool ended_ = false;
    size_t lines_ = 0;
};

} // namespace tavstrg

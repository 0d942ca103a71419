// SPDX-License-Identifier: Apache-2.0
// Lines of /proc/interrupts and /proc/ioports: parsing, and reading line by line.
#pragma once

#include "devcmd/kernel/irq_ports.h"

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <optional>
#include <string_view>

namespace tavstrg {

constexpr size_t kProcLineMax = 1023; // characters of a line that are kept

struct ProcLine {
    char text[kProcLineMax + 1]; // with its newline, terminated
    size_t length;
    bool complete; // ended by a newline, not by the end of the file

    std::string_view view() const { return {text, length}; }
    void removeNewline();
};

// Reads the next line, of no more than left characters, which become so many fewer: false at the end of the file and
// with none left. What a line has beyond kProcLineMax characters is passed over: it
// is never taken for another line, whose number would be one of the counts in the middle of an interrupt's
// line.
bool readProcLine(std::FILE *file, ProcLine &line, size_t &left);

// The lines of an interrupt that are looked for.
struct InterruptSearch {
    std::string_view key;
    bool skipMatch; // the first line that mentions the key is another device's
};

// "i80421" and "i80422" stand for the first and the second "i8042" line, keyboard and auxiliary port of that
// controller.
InterruptSearch interruptSearch(std::string_view name);
// The interrupt number when the line ends the search.
std::optional<uint32_t> parseInterruptLine(std::string_view line, InterruptSearch &search);

struct PortRange {
    unsigned long start;
    unsigned long end;
};

// "start-end" in hexadecimal at the beginning of a line, as "%lx-%lx" reads it.
std::optional<PortRange> parseIoportLine(std::string_view line);
// The start alone, as "%lx-" reads it: neither the '-' nor an end need to be there.
std::optional<unsigned long> parseIoportStart(std::string_view line);

} // namespace tavstrg

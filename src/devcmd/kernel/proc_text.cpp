// SPDX-License-Identifier: Apache-2.0
#include "devcmd/kernel/proc_text.h"

#include <algorithm>
#include <charconv>
#include <limits>
#include <system_error>

using namespace tavstrg;

namespace {

constexpr bool isDigitOf(char c, int base)
{
    const bool decimal = c >= '0' && c <= '9';
    return decimal || (base == 16 && ((c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F')));
}

// Takes a number off the front of a text as scanf's %lu and %lx do: after any blanks, an optional sign, in hexadecimal
// an optional 0x; a negative number wraps around, one that does not fit is the largest.
std::optional<unsigned long> scanNumber(std::string_view &text, int base)
{
    std::string_view rest = text;
    rest.remove_prefix(std::min(rest.find_first_not_of(" \t\n\v\f\r"), rest.size()));
    const bool negative = rest.starts_with('-');
    if (negative || rest.starts_with('+')) {
        rest.remove_prefix(1);
    }
    if (base == 16 && (rest.starts_with("0x") || rest.starts_with("0X"))) {
        rest.remove_prefix(2);
    }
    if (rest.empty() || !isDigitOf(rest.front(), base)) {
        return std::nullopt;
    }
    unsigned long number = 0;
    const auto [end, error] = std::from_chars(rest.data(), rest.data() + rest.size(), number, base);
    rest.remove_prefix(static_cast<size_t>(end - rest.data()));
    text = rest;
    if (error == std::errc::result_out_of_range) {
        return std::numeric_limits<unsigned long>::max();
    }
    return negative ? 0UL - number : number;
}

} // namespace

void ProcLine::removeNewline()
{
    if (length > 0 && text[length - 1] == '\n') {
        text[--length] = '\0';
    }
}

bool tavstrg::readProcLine(std::FILE *file, ProcLine &line, size_t &left)
{
    line.length = 0;
    line.complete = false;
    bool any = false;
    for (int c = EOF; left > 0 && (c = ::getc_unlocked(file)) != EOF;) {
        any = true;
        --left;
        if (line.length < kProcLineMax) {
            line.text[line.length++] = static_cast<char>(c);
        }
        if (c == '\n') {
            line.complete = true;
            break;
        }
    }
    line.text[line.length] = '\0';
    return any;
}

InterruptSearch tavstrg::interruptSearch(std::string_view name)
{
    if (name == "i80421") {
        return {"i8042", false};
    }
    if (name == "i80422") {
        return {"i8042", true};
    }
    return {name, false};
}

std::optional<uint32_t> tavstrg::parseInterruptLine(std::string_view line, InterruptSearch &search)
{
    if (line.find(search.key) == std::string_view::npos) {
        return std::nullopt;
    }
    if (search.skipMatch) {
        search.skipMatch = false;
        return std::nullopt;
    }
    // As "%u:" reads it: lines of other kinds (NMI, LOC) have no number; the colon decides nothing.
    const std::optional<unsigned long> number = scanNumber(line, 10);
    if (!number) {
        return std::nullopt;
    }
    return static_cast<uint32_t>(*number);
}

std::optional<PortRange> tavstrg::parseIoportLine(std::string_view line)
{
    const std::optional<unsigned long> start = scanNumber(line, 16);
    if (!start || !line.starts_with('-')) {
        return std::nullopt;
    }
    line.remove_prefix(1);
    const std::optional<unsigned long> end = scanNumber(line, 16);
    if (!end) {
        return std::nullopt;
    }
    return PortRange{*start, *end};
}

std::optional<unsigned long> tavstrg::parseIoportStart(std::string_view line)
{
    return scanNumber(line, 16);
}

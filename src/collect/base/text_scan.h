// SPDX-License-Identifier: Apache-2.0
// Small operations on kernel texts and on lines of the administrator's files.
#pragma once

#include <algorithm>
#include <charconv>
#include <cstddef>
#include <string_view>
#include <system_error>

namespace tavstrg {

constexpr std::string_view kBlanks = " \t";
constexpr std::string_view kWhiteSpace = " \t\n\v\f\r";

inline std::string_view withoutLeading(std::string_view text, std::string_view characters)
{
    return text.substr(std::min(text.find_first_not_of(characters), text.size()));
}

inline std::string_view withoutTrailing(std::string_view text, std::string_view characters)
{
    return text.substr(0, text.find_last_not_of(characters) + 1);
}

// Text up to the first NUL: what follows it in a file is not text.
constexpr std::string_view untilNul(std::string_view text)
{
    return text.substr(0, text.find('\0'));
}

// Takes the next line, without its newline, off the front of a text; false when nothing is left.
inline bool takeLine(std::string_view &rest, std::string_view &line)
{
    if (rest.empty()) {
        return false;
    }
    line = rest.substr(0, rest.find('\n'));
    rest.remove_prefix(std::min(line.size() + 1, rest.size()));
    return true;
}

// A line without what ends it, a newline or a carriage return and a newline.
inline std::string_view withoutLineEnd(std::string_view line)
{
    if (line.ends_with('\n')) {
        line.remove_suffix(1);
    }
    if (line.ends_with('\r')) {
        line.remove_suffix(1);
    }
    return line;
}

// Takes words, numbers and literals off the front of a kernel text, as the conversions of scanf do, but refuses a
// number that does not fit its type.
struct TextScan {
    std::string_view rest;

    void skipWhiteSpace() { rest.remove_prefix(std::min(rest.find_first_not_of(kWhiteSpace), rest.size())); }

    // "%s": the next run of characters that are not white space; false at the end of the text.
    bool word(std::string_view &out)
    {
        skipWhiteSpace();
        out = rest.substr(0, rest.find_first_of(kWhiteSpace));
        rest.remove_prefix(out.size());
        return !out.empty();
    }

    // "%d" and its kin: white space, a sign, digits. What follows the digits stays.
    template <class Number> bool number(Number &out)
    {
        skipWhiteSpace();
        std::string_view digits = rest;
        if (digits.size() > 1 && digits[0] == '+' && digits[1] != '-') {
            digits.remove_prefix(1);
        }
        const char *const end = digits.data() + digits.size();
        const auto [stop, error] = std::from_chars(digits.data(), end, out, 10);
        if (error != std::errc()) {
            return false;
        }
        rest = {stop, static_cast<size_t>(end - stop)};
        return true;
    }

    // Exactly this text, next.
    bool literal(std::string_view text)
    {
        if (!rest.starts_with(text)) {
            return false;
        }
        rest.remove_prefix(text.size());
        return true;
    }
};

} // namespace tavstrg

// SPDX-License-Identifier: Apache-2.0
// Takes words, numbers and literals off the front of a kernel text, as the conversions of scanf do, but refuses a
// number that does not fit its type.
#pragma once

#include <algorithm>
#include <charconv>
#include <cstddef>
#include <string_view>
#include <system_error>

constexpr std::string_view kWhiteSpace = " \t\n\v\f\r";

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

// SPDX-License-Identifier: Apache-2.0
#include "runtime/clean_text.h"

#include "runtime/options.h"

#include <algorithm>
#include <cstdint>
#include <cstring>

using namespace tavstrg;

namespace {

constexpr std::string_view kBlanks = " \t\n\v\f\r";
constexpr char kReplacement = '?';

// What a text begins with.
struct Character {
    uint32_t code;
    size_t length; // bytes; 0: no character of UTF-8
};

// The well-formed sequences of UTF-8 (RFC 3629) by the first byte: how many bytes follow, and the bounds of the second,
// which exclude overlong forms, surrogates and codes above 10FFFF.
struct Lead {
    uint8_t first, last;
    size_t following;
    uint8_t low, high;
};
constexpr Lead kLeads[] = {
    {0xC2, 0xDF, 1, 0x80, 0xBF}, {0xE0, 0xE0, 2, 0xA0, 0xBF}, {0xE1, 0xEC, 2, 0x80, 0xBF}, {0xED, 0xED, 2, 0x80, 0x9F},
    {0xEE, 0xEF, 2, 0x80, 0xBF}, {0xF0, 0xF0, 3, 0x90, 0xBF}, {0xF1, 0xF3, 3, 0x80, 0xBF}, {0xF4, 0xF4, 3, 0x80, 0x8F},
};

constexpr uint8_t byteAt(std::string_view text, size_t i)
{
    return static_cast<uint8_t>(text[i]);
}

// The text is not empty.
Character decode(std::string_view text)
{
    const uint8_t first = byteAt(text, 0);
    if (first < 0x80) {
        return {first, 1};
    }
    const auto *const lead =
        std::ranges::find_if(kLeads, [&](const Lead &l) { return first >= l.first && first <= l.last; });
    if (lead == std::end(kLeads) || text.size() <= lead->following || byteAt(text, 1) < lead->low ||
        byteAt(text, 1) > lead->high) {
        return {0, 0};
    }
    uint32_t code = first & (0x3FU >> lead->following);
    for (size_t i = 1; i <= lead->following; ++i) {
        if ((byteAt(text, i) & 0xC0U) != 0x80) {
            return {0, 0};
        }
        code = code << 6 | (byteAt(text, i) & 0x3FU);
    }
    return {code, lead->following + 1};
}

// C0, DELETE, C1, and what the production Char of XML 1.0 leaves out.
constexpr bool isForbidden(uint32_t code)
{
    return code < 0x20 || (code >= 0x7F && code <= 0x9F) || code == 0xFFFE || code == 0xFFFF;
}

std::string_view withoutBlanksAtEnds(std::string_view text)
{
    text.remove_prefix(std::min(text.find_first_not_of(kBlanks), text.size()));
    return text.substr(0, text.find_last_not_of(kBlanks) + 1);
}

} // namespace

size_t tavstrg::cleanText(std::string_view text, std::span<char> out)
{
    if (out.empty()) {
        return 0;
    }
    size_t length = 0;
    for (text = withoutBlanksAtEnds(text); !text.empty();) {
        const Character next = decode(text);
        const size_t taken = std::max(next.length, size_t{1});
        const bool kept = next.length != 0 && !isForbidden(next.code);
        const bool blank = !kept && kBlanks.find(text[0]) != std::string_view::npos;
        const char instead = blank ? ' ' : kReplacement;
        const std::string_view written = kept ? text.substr(0, taken) : std::string_view(&instead, 1);
        if (length + written.size() >= out.size()) {
            break;
        }
        std::memcpy(out.data() + length, written.data(), written.size());
        length += written.size();
        text.remove_prefix(taken);
    }
    length = withoutBlanksAtEnds({out.data(), length}).size(); // the cut may have left blanks at the end
    out[length] = '\0';
    return length;
}

const char *tavstrg::publishedText(const char *text, std::span<char> buffer)
{
    if (!currentOptions().has(Option::cleanText)) {
        return text;
    }
    cleanText(text, buffer);
    return buffer.data();
}

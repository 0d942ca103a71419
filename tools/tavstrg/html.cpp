// SPDX-License-Identifier: Apache-2.0
#include "tavstrg/html.h"

#include <cstddef>
#include <cstdint>

namespace tool {
namespace {

constexpr std::string_view kReplacement = "\xEF\xBF\xBD"; // U+FFFD

struct CodePoint {
    uint32_t code;
    size_t length; // in bytes; 0: no character begins here
};

// RFC 3629, 3: no overlong form, no surrogate, nothing above U+10FFFF.
CodePoint firstOf(std::string_view text)
{
    const auto byte = [&text](size_t i) { return static_cast<uint8_t>(text[i]); };
    const uint8_t head = byte(0);
    const size_t length = head < 0x80 ? 1 : head >> 5 == 6 ? 2 : head >> 4 == 14 ? 3 : head >> 3 == 30 ? 4 : 0;
    if (length == 0 || length > text.size()) {
        return {0, 0};
    }
    if (length == 1) {
        return {head, 1};
    }
    uint32_t code = head & (0x7FU >> length);
    for (size_t i = 1; i < length; ++i) {
        if (byte(i) >> 6 != 2) {
            return {0, 0};
        }
        code = code << 6 | (byte(i) & 0x3FU);
    }
    constexpr uint32_t kLeast[] = {0, 0, 0x80, 0x800, 0x10000};
    const bool valid = code >= kLeast[length] && code <= 0x10FFFF && (code < 0xD800 || code > 0xDFFF);
    return {code, valid ? length : 0};
}

// Controls (also C1), the bidirectional ones (UAX 9, 2), and non-characters.
bool isHarmful(uint32_t code)
{
    return code < 0x20 || (code >= 0x7F && code < 0xA0) || code == 0x200E || code == 0x200F ||
           (code >= 0x2028 && code <= 0x202E) || (code >= 0x2066 && code <= 0x2069) ||
           (code >= 0xFDD0 && code <= 0xFDEF) || (code & 0xFFFE) == 0xFFFE;
}

std::string_view referenceOf(uint32_t code)
{
    switch (code) {
    case '&':
        return "&amp;";
    case '<':
        return "&lt;";
    case '>':
        return "&gt;";
    case '"':
        return "&quot;";
    case '\'':
        return "&#39;";
    default:
        return "";
    }
}

} // namespace

std::string escapedHtml(std::string_view text)
{
    std::string result;
    while (!text.empty()) {
        const CodePoint character = firstOf(text);
        const size_t length = character.length == 0 ? 1 : character.length;
        if (character.length == 0 || isHarmful(character.code)) {
            result += kReplacement;
        } else if (const std::string_view reference = referenceOf(character.code); !reference.empty()) {
            result += reference;
        } else {
            result += text.substr(0, length);
        }
        text.remove_prefix(length);
    }
    return result;
}

} // namespace tool

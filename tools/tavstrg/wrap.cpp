// SPDX-License-Identifier: Apache-2.0
#include "tavstrg/wrap.h"

#include <algorithm>
#include <array>
#include <cstdint>

namespace tool {
namespace {

struct Character {
    size_t bytes;
    size_t columns;
};

struct Range {
    uint32_t first, last;
};

// Unicode 15: general category Mn and Me of common scripts, and joiners and selectors of emoji.
constexpr std::array<Range, 9> kCombining = {{{0x0300, 0x036f},
                                              {0x0483, 0x0489},
                                              {0x0591, 0x05bd},
                                              {0x0610, 0x061a},
                                              {0x064b, 0x065f},
                                              {0x1ab0, 0x1aff},
                                              {0x200b, 0x200f},
                                              {0x20d0, 0x20f0},
                                              {0xfe00, 0xfe0f}}};
// Unicode Standard Annex 11: East Asian Width W and F.
constexpr std::array<Range, 11> kWide = {{{0x1100, 0x115f},
                                          {0x2e80, 0x303e},
                                          {0x3041, 0xa4cf},
                                          {0xa960, 0xa97c},
                                          {0xac00, 0xd7a3},
                                          {0xf900, 0xfaff},
                                          {0xfe30, 0xfe6f},
                                          {0xff00, 0xff60},
                                          {0xffe0, 0xffe6},
                                          {0x1f300, 0x1faff},
                                          {0x20000, 0x3fffd}}};

bool isIn(const auto &ranges, uint32_t point)
{
    return std::any_of(ranges.begin(), ranges.end(),
                       [point](const Range &range) { return point >= range.first && point <= range.last; });
}

// The character at the front of a text that is not empty (RFC 3629).
Character frontOf(std::string_view text)
{
    const auto byte = [&text](size_t i) { return i < text.size() ? static_cast<unsigned char>(text[i]) : 0U; };
    const uint32_t lead = byte(0);
    const size_t size = lead < 0xc2 ? 1 : lead < 0xe0 ? 2 : lead < 0xf0 ? 3 : lead < 0xf5 ? 4 : 1;
    uint32_t point = size == 1 ? lead : lead & (0x7fU >> size);
    for (size_t i = 1; i < size; ++i) {
        if ((byte(i) & 0xc0U) != 0x80) {
            return {1, 1};
        }
        point = point << 6 | (byte(i) & 0x3fU);
    }
    return {size, isIn(kCombining, point) ? size_t{0} : isIn(kWide, point) ? size_t{2} : size_t{1}};
}

// Bytes at the front of a text that take no more than so many columns, at least one character.
size_t bytesWithin(std::string_view text, size_t width)
{
    size_t bytes = 0;
    for (size_t columns = 0; bytes < text.size();) {
        const Character next = frontOf(text.substr(bytes));
        columns += next.columns;
        if (columns > width && bytes > 0) {
            break;
        }
        bytes += next.bytes;
    }
    return bytes;
}

std::string_view withoutBlanksBehind(std::string_view text)
{
    return text.substr(0, text.find_last_not_of(' ') + 1);
}

std::string_view withoutBlanksBefore(std::string_view text)
{
    return text.substr(std::min(text.find_first_not_of(' '), text.size()));
}

// Bytes of the first line of a text that is too long for one: up to the last blank that fits, or, if the first word
// alone does not fit, as much of it as does. A comma close before that blank is preferred.
size_t cutOf(std::string_view text, size_t width)
{
    const size_t fits = bytesWithin(text, width);
    const size_t blank = text.find_last_of(' ', fits);
    if (blank == std::string_view::npos || blank <= text.find_first_not_of(' ')) {
        return fits;
    }
    const size_t comma = text.substr(0, blank).rfind(", ");
    const bool near = comma != std::string_view::npos && columnsOf(text.substr(0, comma)) >= width / 2;
    return text[blank - 1] != ',' && near ? comma + 1 : blank;
}

} // namespace

size_t columnsOf(std::string_view text)
{
    size_t columns = 0;
    while (!text.empty()) {
        const Character front = frontOf(text);
        columns += front.columns;
        text.remove_prefix(front.bytes);
    }
    return columns;
}

std::vector<std::string> wrapped(std::string_view text, size_t firstWidth, size_t restWidth)
{
    std::vector<std::string> lines;
    std::string_view rest = withoutBlanksBehind(text);
    for (size_t width = firstWidth; width != 0 && columnsOf(rest) > width; width = restWidth) {
        const size_t cut = cutOf(rest, width);
        lines.emplace_back(withoutBlanksBehind(rest.substr(0, cut)));
        rest = withoutBlanksBefore(rest.substr(cut));
    }
    if (lines.empty() || !rest.empty()) {
        lines.emplace_back(rest);
    }
    return lines;
}

std::string hanging(std::string_view line, size_t hang, size_t width)
{
    const size_t room = width == 0 ? 0 : std::max(width, hang + 1) - hang;
    const std::vector<std::string> lines = wrapped(line, width, room);
    std::string out;
    for (size_t i = 0; i < lines.size(); ++i) {
        out += (i == 0 ? "" : std::string(hang, ' ')) + lines[i] + "\n";
    }
    return out;
}

std::string fitted(std::string_view text, size_t width)
{
    if (width == 0) {
        return std::string(text);
    }
    std::string out;
    while (!text.empty()) {
        const std::string_view line = text.substr(0, text.find('\n'));
        text.remove_prefix(std::min(line.size() + 1, text.size()));
        out += hanging(line, line.size() - withoutBlanksBefore(line).size() + kIndent, width);
    }
    return out;
}

std::string twoColumns(const Rows &rows, size_t width)
{
    size_t widest = 0;
    for (const auto &row : rows) {
        widest = std::max(widest, columnsOf(row.first));
    }
    const size_t begin = 2 + widest + 2;
    const bool beside = width == 0 || width >= begin + kNarrowest;
    std::string out;
    for (const auto &[left, right] : rows) {
        std::string line = "  " + left + std::string(widest - columnsOf(left), ' ') + "  ";
        if (beside || begin + columnsOf(right) <= width) {
            out += hanging(line + right, begin, width);
        } else {
            out += hanging(line, kIndent, width);
            out += hanging(std::string(kIndent, ' ') + right, kIndent, width);
        }
    }
    return out;
}

} // namespace tool

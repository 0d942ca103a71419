// SPDX-License-Identifier: Apache-2.0
#include "endurance/endurance_parse.h"

#include <algorithm>
#include <charconv>
#include <cstring>
#include <limits>

using namespace tavstrg;

namespace {

constexpr std::string_view kLineBreaks = "\r\n";
constexpr std::string_view kFieldBreaks = ",\r\n";

// The low 16 bits, as an assignment to a short field takes them.
int16_t boundOf(std::string_view field)
{
    return static_cast<int16_t>(numberOf(field));
}

M2SSDInf entryOf(const std::string_view (&fields)[kM2SSDFields + 1])
{
    M2SSDInf entry = {};
    std::memcpy(entry.model, fields[0].data(), std::min(fields[0].size(), sizeof entry.model));
    entry.attid = numberOf(fields[1]);
    entry.max = boundOf(fields[2]);
    entry.lv5 = boundOf(fields[3]);
    entry.lv4 = boundOf(fields[4]);
    entry.lv3 = boundOf(fields[5]);
    entry.lv2 = boundOf(fields[6]);
    entry.min = boundOf(fields[7]);
    return entry;
}

} // namespace

bool tavstrg::takeTableLine(std::string_view &rest, std::string_view &line)
{
    const size_t newline = rest.substr(0, kM2SSDLineBuffer - 1).find('\n');
    const size_t length = newline == std::string_view::npos ? kM2SSDLineBuffer - 1 : newline + 1;
    line = rest.substr(0, length);
    rest.remove_prefix(line.size());
    const bool got = !line.empty();
    line = line.substr(0, line.find('\0'));
    return got;
}

std::string_view tavstrg::withoutBreaks(std::string_view line)
{
    return line.substr(0, line.find_last_not_of(kLineBreaks) + 1);
}

size_t tavstrg::splitTableLine(std::string_view line, std::string_view (&fields)[kM2SSDFields + 1])
{
    size_t count = 0;
    while (count <= kM2SSDFields) {
        line.remove_prefix(std::min(line.find_first_not_of(kFieldBreaks), line.size()));
        if (line.empty()) {
            break;
        }
        fields[count] = line.substr(0, line.find_first_of(kFieldBreaks));
        line.remove_prefix(fields[count].size());
        ++count;
    }
    return count;
}

int32_t tavstrg::numberOf(std::string_view text)
{
    constexpr std::string_view kSpace = " \t\n\v\f\r";
    text.remove_prefix(std::min(text.find_first_not_of(kSpace), text.size()));
    // from_chars takes a minus, but no plus.
    if (text.starts_with('+') && !text.starts_with("+-")) {
        text.remove_prefix(1);
    }
    int64_t number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (error == std::errc::result_out_of_range) {
        using Limits = std::numeric_limits<int64_t>;
        number = text.starts_with('-') ? Limits::min() : Limits::max();
    }
    return static_cast<int32_t>(number);
}

TableLine EnduranceLines::take(std::string_view line, M2SSDInf &entry)
{
    ++lines_;
    line = withoutBreaks(line);
    if (line.empty()) {
        return TableLine::empty;
    }
    if (!inSection_) {
        inSection_ = line.starts_with(kEnduranceSection);
        return inSection_ ? TableLine::sectionBegins : TableLine::outside;
    }
    if (line.starts_with('[')) {
        ended_ = true;
        return TableLine::sectionEnds;
    }
    std::string_view fields[kM2SSDFields + 1];
    if (splitTableLine(line, fields) != kM2SSDFields) {
        return TableLine::otherFields;
    }
    entry = entryOf(fields);
    return TableLine::entry;
}

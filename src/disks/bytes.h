// SPDX-License-Identifier: Apache-2.0
// Numbers and texts in replies of devices. No byte beyond a span is read; a number that is not completely there is 0.
#pragma once

#include "runtime/field_text.h"

#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

namespace tavstrg::disks {

using Bytes = std::span<const uint8_t>;

constexpr uint64_t littleEndian(Bytes bytes, size_t at, size_t length)
{
    uint64_t value = 0;
    if (at > bytes.size() || bytes.size() - at < length) {
        return 0;
    }
    for (size_t i = length; i-- > 0;) {
        value = value << 8 | bytes[at + i];
    }
    return value;
}

constexpr uint64_t bigEndian(Bytes bytes, size_t at, size_t length)
{
    uint64_t value = 0;
    if (at > bytes.size() || bytes.size() - at < length) {
        return 0;
    }
    for (size_t i = 0; i < length; ++i) {
        value = value << 8 | bytes[at + i];
    }
    return value;
}

constexpr uint8_t byteAt(Bytes bytes, size_t at)
{
    return at < bytes.size() ? bytes[at] : uint8_t{0};
}

// The part of the bytes that is there.
constexpr Bytes part(Bytes bytes, size_t at, size_t length)
{
    if (at >= bytes.size()) {
        return {};
    }
    return bytes.subspan(at, length < bytes.size() - at ? length : bytes.size() - at);
}

inline std::string_view textOf(Bytes bytes)
{
    return {reinterpret_cast<const char *>(bytes.data()), bytes.size()};
}

constexpr bool isPrintable(char c)
{
    return c >= ' ' && c <= '~';
}

// A text of a device into a field: up to its first NUL, without blanks at its ends, runs of blanks as one; what is not
// printable ASCII becomes '?'. Cut to the field.
template <size_t N> void copyClean(char (&field)[N], std::string_view text)
{
    size_t length = 0;
    bool blank = false;
    for (const char c : text.substr(0, text.find('\0'))) {
        if (c == ' ' || c == '\n' || c == '\t' || c == '\r') {
            blank = length != 0;
            continue;
        }
        if (length + (blank ? 2 : 1) >= N) {
            break;
        }
        if (blank) {
            field[length++] = ' ';
            blank = false;
        }
        field[length++] = isPrintable(c) ? c : '?';
    }
    for (size_t i = length; i < N; ++i) {
        field[i] = '\0';
    }
}

} // namespace tavstrg::disks

// SPDX-License-Identifier: Apache-2.0
// Bounded copies into the fixed fields of records and tables.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <initializer_list>
#include <string_view>

namespace tavstrg {

// Copies as much of text as fits into a field, cutting what does not, and zero-fills the rest: always terminated.
template <size_t N> void copyText(char (&field)[N], std::string_view text)
{
    const size_t length = std::min(text.size(), N - 1);
    if (length != 0) { // an empty view may point nowhere
        std::memcpy(field, text.data(), length);
    }
    std::memset(field + length, 0, N - length);
}

// Puts texts one behind the other into a field, cutting what does not fit: always terminated. What is behind the
// terminator stays as it was. For paths, of which a pass has many.
template <size_t N> void joinText(char (&field)[N], std::initializer_list<std::string_view> parts)
{
    size_t length = 0;
    for (const std::string_view part : parts) {
        length += part.copy(field + length, N - 1 - length);
    }
    field[length] = '\0';
}

// The text of a fixed field, whether or not a terminator is in it.
template <size_t N> std::string_view fieldText(const char (&field)[N])
{
    return {field, ::strnlen(field, N)};
}

} // namespace tavstrg

// SPDX-License-Identifier: Apache-2.0
// An attribute of sysfs or another small text file: its first line.
#pragma once

#include "collect/base/text_file.h"

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace tavstrg {

constexpr size_t kAttributeSize = 64; // bytes of an attribute's field: 63 characters and the terminator
constexpr size_t kMaxAttributeLine = 1023;
// Value in the first line of an attribute file: at most 63 characters. Trailing blanks go only where a newline ends it.
std::string_view attributeValue(std::string_view text);

// A reading of an attribute file.
struct AttributeText {
    ReadResult result;
    char value[kAttributeSize];
};
// Reads an attribute file without a trace line.
AttributeText readAttributeText(const char *path);
// What GetInfFromFile gives and traces, of a reading that was made before. path only names it.
int retellAttribute(const AttributeText &text, const char *path, int32_t *status, char *out);

} // namespace tavstrg

// First line of a small text file, such as a sysfs attribute, trimmed and cut to 63 characters, without a terminator
// into out, which the caller has zero-filled. 0; -1 with *status 1 (absent), -1 (not opened) or -2 (not read).
int GetInfFromFile(int32_t *status, const char *path, char *out);

// SPDX-License-Identifier: Apache-2.0
// What stands in the administrator's files and in attribute files: parsing without reading.
#pragma once

#include "collect/inf/storage_inf.h"

#include <string_view>

// Text up to the first NUL: what stands behind one in a file is not text.
constexpr std::string_view untilNul(std::string_view text)
{
    return text.substr(0, text.find('\0'));
}

// Takes the next line, without its newline, off the front of a text; false when nothing is left.
bool takeLine(std::string_view &rest, std::string_view &line);
// A line without what ends it, a newline or a carriage return and a newline.
std::string_view withoutLineEnd(std::string_view line);

struct InfSections {
    std::string_view first;
    std::string_view second;
};
// Divides a text at its two header lines: true with the text of each section; false unless both headers are there in
// their order or neither is. Without headers everything is the first section.
bool splitInfSections(std::string_view text, std::string_view firstHeader, std::string_view secondHeader,
                      InfSections &sections);

enum class DriverLine { name, tooLong, header, comment, blank, nameTooLong };
constexpr size_t kMaxDriverLine = 256; // characters without the line's end
// What a line of "storage.inf" is, and the driver name when it has one.
DriverLine parseDriverLine(std::string_view line, std::string_view &name);

constexpr size_t kMaxAttributeLine = 1023;
// Value in the first line of an attribute file: at most 63 characters. Trailing blanks go only where a newline ends it.
std::string_view attributeValue(std::string_view text);

// SPDX-License-Identifier: Apache-2.0
// Sections and lines of the administrator's files: parsing without reading.
#pragma once

#include "collect/inf/storage_inf.h"

#include <string_view>

namespace tavstrg {

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

} // namespace tavstrg

// SPDX-License-Identifier: Apache-2.0
// What the texts of /proc/ide mean: parsing without reading.
#pragma once

#include <cstdint>
#include <string_view>

namespace tavstrg {

constexpr int32_t kUnknownChannel = 65535;

// The first word as a decimal number; kUnknownChannel if it is not a number.
int32_t parseIDEChannel(std::string_view text);
// One line, without its newline and with at most 63 characters.
std::string_view parseIDELine(std::string_view text);
// "%s version %s"; "Unknown" for both when the line is another.
struct IDEDriver {
    std::string_view name;
    std::string_view version;
};
IDEDriver parseIDEDriver(std::string_view line);

struct IDEGeometry {
    int32_t cylinders;
    int32_t heads;
    int32_t sectors; // per track
};
// "physical %d/%d/%d", on the first line that begins so. Returns false if there is no such line or its rest differs.
bool parseIDEGeometry(std::string_view text, IDEGeometry &geometry);
bool parseIDECapacity(std::string_view text, int64_t &sectors);
bool parseIDECache(std::string_view text, int32_t &cache);
// The part of a link's target before its first "/": false when there is no "/".
bool parseIDELink(std::string_view target, std::string_view &controller);

} // namespace tavstrg

// SPDX-License-Identifier: Apache-2.0
// What all JSON documents of the tool have in common. The format is described in docs/JSON.md and, for programs, in
// schema/tavstrg.schema.json.
#pragma once

#include "broker/broker.h"

#include <nlohmann/json.hpp>

#include <optional>
#include <string>
#include <string_view>

namespace tool {

using Json = nlohmann::ordered_json;

// Changes when a field is renamed, removed or means something else, not when one is added.
constexpr int kJsonFormatVersion = 1;

// A new document: formatVersion, command, and by whom, where and when it was made.
Json document(const char *command);

std::string hostName();              // of the system that runs the tool
double secondsNow();                 // since 1970
std::string utcTime(double seconds); // "2026-01-31T23:59:58.123Z"

// Each ends in a newline. The output is ASCII, all other characters are escaped; bytes that are not UTF-8 become
// U+FFFD.
std::string written(const Json &json);
std::string writtenInOneLine(const Json &json);

Json textOrNull(std::string_view text);                 // null for an empty one
Json nodePath(const std::string &node);                 // "/dev/sda" for "sda", null for none
Json hostNumber(const std::optional<unsigned> &number); // null for none
Json propertiesJson(const broker::Instance &instance);  // name and value, in their order

} // namespace tool

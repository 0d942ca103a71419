// SPDX-License-Identifier: Apache-2.0
// What all JSON documents of the tool have in common: docs/JSON.md tells it, schema/tavstrg.schema.json has it for
// programs.
#pragma once

#include "broker/broker.h"

#include <nlohmann/json.hpp>

#include <string>

namespace tool {

using Json = nlohmann::ordered_json;

// Changes when a field is renamed, removed or means something else, not when one is added.
constexpr int kJsonFormatVersion = 1;

Json document(const char *command); // with its formatVersion and the command that it is of

// Each ends in a newline; bytes that are no UTF-8 become U+FFFD.
std::string written(const Json &json);
std::string writtenInOneLine(const Json &json);

Json propertiesJson(const broker::Instance &instance); // name and value, in their order

} // namespace tool

// What all JSON documents of the tool have in common.
#pragma once

#include "broker/broker.h"

#include <nlohmann/json.hpp>

#include <string>

namespace tool {

using Json = nlohmann::ordered_json;

Json document();                                       // with its formatVersion
std::string written(const Json &json);                 // ends in a newline; bytes that are no UTF-8 become U+FFFD
Json propertiesJson(const broker::Instance &instance); // name and value, in their order

} // namespace tool

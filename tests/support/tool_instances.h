// SPDX-License-Identifier: Apache-2.0
// Instances as the provider would return them, for tests of what is made of them.
#pragma once

#include "broker/broker.h"

#include <string>
#include <utility>
#include <variant>
#include <vector>

namespace tool::testing_support {

using Property = std::pair<std::string, std::variant<int, std::string>>;

inline broker::Instance instance(const std::string &className, const std::vector<Property> &properties)
{
    broker::Instance result;
    result.nameSpace = "root/TAVKIT/AS";
    result.className = className;
    for (const auto &[name, value] : properties) {
        if (const int *number = std::get_if<int>(&value); number == nullptr) {
            result.properties.push_back({name, broker::Value::text(std::get<std::string>(value))});
        } else if (*number < 0) {
            result.properties.push_back({name, broker::Value::signedNumber(*number, CMPI_sint16)});
        } else {
            result.properties.push_back({name, broker::Value::number(static_cast<uint64_t>(*number), CMPI_uint16)});
        }
    }
    return result;
}

} // namespace tool::testing_support

// SPDX-License-Identifier: Apache-2.0
// What the schema says of the values of a property: the words of its codes (Values) and its unit (Units).
#pragma once

#include "broker/broker.h"

#include <span>
#include <string>
#include <string_view>

namespace tool {

struct SchemaWord {
    int code;
    const char *word;
};

struct SchemaProperty {
    const char *className; // null: any class that has the property
    const char *name;
    std::span<const SchemaWord> words; // empty: the values are no codes
    const char *unit;                  // as the schema spells it; null: none
    const char *printedUnit;
};

std::span<const SchemaProperty> schemaProperties();

// " (Failure predicted)", " MiB"; empty for a value that the schema says nothing of.
std::string schemaMeaning(std::string_view className, std::string_view property, const broker::Value &value);

} // namespace tool

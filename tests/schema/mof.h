// SPDX-License-Identifier: Apache-2.0
// A small reader of MOF: as much of the language as the schema uses, and nothing silently passed over.
#pragma once

#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace mof {

// A value or an array of values, as texts; none: no value at all, or NULL.
using Values = std::vector<std::string>;

// Qualifiers by name in lower case.
using Qualifiers = std::map<std::string, Values>;

struct Parameter {
    Qualifiers qualifiers;
    std::string type;
    std::string name;
};

struct Property {
    Qualifiers qualifiers;
    std::string type;
    std::string name;
};

struct Method {
    Qualifiers qualifiers;
    std::string type; // of the return value
    std::string name;
    std::vector<Parameter> parameters;
};

struct Class {
    Qualifiers qualifiers;
    std::string name;
    std::string superclass; // empty: none
    std::vector<Property> properties;
    std::vector<Method> methods;
};

struct Instance {
    std::string className;
    std::map<std::string, Values> properties;
};

// The classes of a text in their order. Throws std::runtime_error with the line where it is something else.
std::vector<Class> parse(std::string_view text);

// The same for a text of instances.
std::vector<Instance> parseInstances(std::string_view text);

} // namespace mof

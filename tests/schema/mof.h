// A small reader of MOF: as much of the language as the schema uses, and nothing silently passed over.
#pragma once

#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace mof {

// Qualifiers by name in lower case; one without a value has an empty text.
using Qualifiers = std::map<std::string, std::string>;

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

// The classes of a text in their order. Throws std::runtime_error with the line where it is something else.
std::vector<Class> parse(std::string_view text);

} // namespace mof

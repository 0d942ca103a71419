// SPDX-License-Identifier: Apache-2.0
#include "broker_headers/header_set.h"

#include <map>
#include <set>

namespace cmpi {
namespace {

const std::map<std::string, std::string> kIntegers = {{"1", "char"}, {"2", "short"}, {"4", "int"}, {"8", "long long"}};
const std::map<std::string, std::string> kReals = {{"4", "float"}, {"8", "double"}};

const std::set<std::string> kValues = {"CMPIValuePtr", "CMPIValue", "CMPIData", "CMPIStatus"};

std::string keyword(const Structure &structure)
{
    return structure.isUnion() ? "union" : "struct";
}

std::string declaration(const Member &member)
{
    const size_t parameters = member.type.find('(');
    return member.slot ? member.type.substr(0, parameters) + "(*" + member.name + ")" + member.type.substr(parameters)
                       : member.type + " " + member.name;
}

} // namespace

std::string scalarTypes(const Facts &facts)
{
    std::set<std::string> enumerated;
    for (const Row &row : facts.of("enum")) {
        enumerated.insert(row.name);
    }
    std::map<std::string, std::string> sign;
    for (const Row &row : facts.of("typesigned")) {
        sign[row.name] = row.value == "1" ? "signed " : "unsigned ";
    }
    std::string text = "typedef void CMPIGcStat;\n";
    for (const Row &row : facts.of("typesize")) {
        if (sign.count(row.name) != 0) {
            text += "typedef " + sign[row.name] + kIntegers.at(row.value) + " " + row.name + ";\n";
        } else if (row.name.find("Real") != std::string::npos) {
            text += "typedef " + kReals.at(row.value) + " " + row.name + ";\n";
        } else if (enumerated.count(row.name) == 0) {
            text += "typedef void *" + row.name + ";\n";
        }
    }
    return text;
}

std::string enumerations(const Facts &facts)
{
    std::string text, open;
    const auto close = [&] { return open.empty() ? "" : "\n} " + open + ";\n"; };
    for (const Row &row : facts.of("enum")) {
        const bool first = row.name != open;
        text += first ? close() + "typedef enum _" + row.name + " {\n    " : ",\n    ";
        text += row.member + " = " + row.value;
        open = row.name;
    }
    return text + close();
}

std::string constants(const Facts &facts)
{
    std::string text;
    for (const Row &row : facts.of("const")) {
        text += "#define " + row.name + " " + row.value + "\n";
    }
    for (const Row &row : facts.of("string")) {
        text += "#define " + row.name + " \"" + row.value + "\"\n";
    }
    return text;
}

std::string forwardDeclarations(const Facts &facts)
{
    std::string text;
    for (const Structure &structure : facts.structures()) {
        text += "typedef " + keyword(structure) + " _" + structure.name + " " + structure.name + ";\n";
    }
    return text;
}

std::string definitions(const Facts &facts, Part part)
{
    std::string text;
    for (const Structure &structure : facts.structures()) {
        if ((kValues.count(structure.name) != 0) == (part == Part::values)) {
            text += keyword(structure) + " _" + structure.name + " {\n";
            for (const Member &member : structure.members) {
                text += "    " + declaration(member) + ";\n";
            }
            text += "};\n";
        }
    }
    return text;
}

} // namespace cmpi

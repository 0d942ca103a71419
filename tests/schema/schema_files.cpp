// SPDX-License-Identifier: Apache-2.0
#include "schema/schema_files.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <iterator>
#include <stdexcept>

namespace schema_files {

std::string fileText(const std::string &relative)
{
    std::ifstream file(std::string(TAV_SOURCE_DIR) + "/" + relative);
    EXPECT_TRUE(file) << relative;
    return {std::istreambuf_iterator<char>(file), {}};
}

const std::vector<mof::Class> &schema()
{
    static const std::vector<mof::Class> classes = mof::parse(fileText("schema/TAV_Storage.mof"));
    return classes;
}

const mof::Class &schemaClass(const std::string &name)
{
    const auto found =
        std::find_if(schema().begin(), schema().end(), [&name](const mof::Class &c) { return c.name == name; });
    if (found == schema().end()) {
        throw std::runtime_error("no class " + name + " in the schema");
    }
    return *found;
}

std::vector<std::string> classNames()
{
    std::vector<std::string> names;
    for (const ClassDesc &desc : kClasses) {
        names.emplace_back(desc.cimName);
    }
    names.emplace_back(kThreadClass);
    names.emplace_back(kDiskClass);
    return names;
}

std::vector<FieldDesc> publishedFields(const ClassDesc &desc)
{
    std::vector<FieldDesc> fields;
    std::copy_if(desc.fields.begin(), desc.fields.end(), std::back_inserter(fields),
                 [](const FieldDesc &field) { return (field.use & kPublished) != 0; });
    return fields;
}

std::vector<Described> everything()
{
    std::vector<Described> all;
    for (const mof::Class &c : schema()) {
        all.push_back({c.name, c.qualifiers});
        for (const mof::Property &property : c.properties) {
            all.push_back({c.name + "." + property.name, property.qualifiers});
        }
        for (const mof::Method &method : c.methods) {
            all.push_back({c.name + "." + method.name + "()", method.qualifiers});
            for (const mof::Parameter &parameter : method.parameters) {
                all.push_back({c.name + "." + method.name + "(" + parameter.name + ")", parameter.qualifiers});
            }
        }
    }
    return all;
}

std::vector<std::string> declared(const std::vector<mof::Property> &properties)
{
    std::vector<std::string> lines;
    for (const mof::Property &property : properties) {
        lines.push_back(property.type + " " + property.name);
    }
    return lines;
}

std::vector<std::string> declared(const std::vector<mof::Method> &methods)
{
    std::vector<std::string> lines;
    for (const mof::Method &method : methods) {
        std::string line = method.type + " " + method.name + "(";
        for (const mof::Parameter &parameter : method.parameters) {
            line += (line.back() == '(' ? "" : ", ") + parameter.type + " " + parameter.name;
        }
        lines.push_back(line + ")");
    }
    return lines;
}

} // namespace schema_files

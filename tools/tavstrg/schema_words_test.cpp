// SPDX-License-Identifier: Apache-2.0
// The table of words and units against the schema itself.
#include "tavstrg/schema_words.h"

#include <gtest/gtest.h>

#include <fstream>
#include <iterator>
#include <map>
#include <regex>

namespace {

using namespace tool;

struct Qualifiers {
    std::string unit;
    std::map<int, std::string> words;
};

std::vector<std::string> quoted(const std::string &list)
{
    std::vector<std::string> texts;
    const std::regex text("\"([^\"]*)\"");
    for (std::sregex_iterator it(list.begin(), list.end(), text), end; it != end; ++it) {
        texts.push_back((*it)[1]);
    }
    return texts;
}

std::string group(const std::string &text, const std::string &pattern)
{
    std::smatch found;
    return std::regex_search(text, found, std::regex(pattern)) ? found[1].str() : "";
}

// Qualifiers of the properties that have values or units, by class and property.
std::map<std::pair<std::string, std::string>, Qualifiers> schema()
{
    std::ifstream file(TAV_SOURCE_DIR "/schema/TAV_Storage.mof");
    const std::string mof(std::istreambuf_iterator<char>(file), {});
    std::map<std::pair<std::string, std::string>, Qualifiers> found;
    const std::regex statement(R"re((class (TAV_\w+))|(\[[^\]]*\])\s*(\w+) (\w+)\s*[;(])re");
    std::string className;
    for (std::sregex_iterator it(mof.begin(), mof.end(), statement), end; it != end; ++it) {
        if ((*it)[1].matched) {
            className = (*it)[2];
            continue;
        }
        const std::string qualifiers = (*it)[3];
        const bool method = it->str().back() == '(';
        Qualifiers read{group(qualifiers, R"re(Units\("([^"]*)"\))re"), {}};
        const auto codes = quoted(group(qualifiers, R"re(ValueMap\{([^}]*)\})re"));
        const auto words = quoted(group(qualifiers, R"re(Values\{([^}]*)\})re"));
        for (size_t i = 0; i < codes.size(); ++i) {
            read.words[std::stoi(codes[i])] = words.at(i);
        }
        if (!method && (!read.unit.empty() || !read.words.empty()) && (*it)[4] != "string") {
            found[{className, (*it)[5]}] = read;
        }
    }
    return found;
}

TEST(SchemaWords, AreTheValuesAndUnitsOfTheSchema)
{
    const auto properties = schema();
    ASSERT_GE(properties.size(), 34U);
    for (const auto &[name, qualifiers] : properties) {
        SCOPED_TRACE(name.first + "." + name.second);
        for (const auto &[code, word] : qualifiers.words) {
            const auto value = code < 0 ? broker::Value::signedNumber(code, CMPI_sint16)
                                        : broker::Value::number(static_cast<uint64_t>(code), CMPI_uint16);
            EXPECT_EQ(schemaMeaning(name.first, name.second, value), " (" + word + ")");
        }
        if (!qualifiers.unit.empty()) {
            const std::map<std::string, std::string> printed = {{"Seconds", " s"},
                                                                {"MegaBytes", " MiB"},
                                                                {"Bytes", " bytes"},
                                                                {"Percent", " %"},
                                                                {"Degrees C", " C"},
                                                                {"Hours", " h"},
                                                                {"Revolutions per Minute", " rpm"}};
            ASSERT_TRUE(printed.contains(qualifiers.unit)) << qualifiers.unit;
            EXPECT_EQ(schemaMeaning(name.first, name.second, broker::Value::number(7, CMPI_uint16)),
                      printed.at(qualifiers.unit));
        }
    }
    // And nothing that the schema does not have.
    for (const SchemaProperty &property : schemaProperties()) {
        if (property.className != nullptr) {
            EXPECT_TRUE(properties.contains({property.className, property.name})) << property.name;
        }
    }
}

TEST(SchemaMeaning, IsEmptyForACodeOrPropertyThatTheSchemaDoesNotKnow)
{
    EXPECT_EQ(schemaMeaning("TAV_StorageHardDisk", "SmartStatus", broker::Value::number(7, CMPI_uint16)), "");
    EXPECT_EQ(schemaMeaning("TAV_StorageHardDisk", "Index", broker::Value::text("1")), "");
    EXPECT_EQ(schemaMeaning("Other", "Capacity", broker::Value::number(7, CMPI_uint16)), "");
}

} // namespace

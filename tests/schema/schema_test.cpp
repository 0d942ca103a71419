#include "mof.h"

#include "store/records/tavStrgRecords.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <fstream>
#include <iterator>
#include <map>
#include <set>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;

constexpr const char *kThreadClass = "TAV_StorageThread";

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
    if (found == schema().end())
        throw std::runtime_error("no class " + name + " in the schema");
    return *found;
}

std::vector<std::string> classNames()
{
    std::vector<std::string> names;
    for (const ClassDesc &desc : kClasses)
        names.emplace_back(desc.cimName);
    names.emplace_back(kThreadClass);
    return names;
}

std::string schemaType(CMPIType type)
{
    switch (type) {
    case CMPI_uint16:
        return "uint16";
    case CMPI_sint16:
        return "sint16";
    case CMPI_uint32:
        return "uint32";
    case CMPI_chars:
        return "string";
    default:
        return "no type of the schema";
    }
}

// "type name" of each, as it would be declared.
std::vector<std::string> declared(const std::vector<mof::Property> &properties)
{
    std::vector<std::string> lines;
    for (const mof::Property &property : properties)
        lines.push_back(property.type + " " + property.name);
    return lines;
}

std::vector<std::string> declared(const std::vector<mof::Method> &methods)
{
    std::vector<std::string> lines;
    for (const mof::Method &method : methods) {
        std::string line = method.type + " " + method.name + "(";
        for (const mof::Parameter &parameter : method.parameters)
            line += (line.back() == '(' ? "" : ", ") + parameter.type + " " + parameter.name;
        lines.push_back(line + ")");
    }
    return lines;
}

struct Described {
    std::string where;
    mof::Qualifiers qualifiers;
};

// Everything in the schema that can carry qualifiers.
std::vector<Described> everything()
{
    std::vector<Described> all;
    for (const mof::Class &c : schema()) {
        all.push_back({c.name, c.qualifiers});
        for (const mof::Property &property : c.properties)
            all.push_back({c.name + "." + property.name, property.qualifiers});
        for (const mof::Method &method : c.methods) {
            all.push_back({c.name + "." + method.name + "()", method.qualifiers});
            for (const mof::Parameter &parameter : method.parameters)
                all.push_back({c.name + "." + method.name + "(" + parameter.name + ")", parameter.qualifiers});
        }
    }
    return all;
}

TEST(Schema, HasTheTwelveClassesOnceEach)
{
    std::vector<std::string> names;
    for (const mof::Class &c : schema())
        names.push_back(c.name);
    EXPECT_EQ(names.size(), 12U);
    EXPECT_THAT(names, testing::UnorderedElementsAreArray(classNames()));
}

TEST(Schema, PropertiesAreWhatTheProviderPublishes)
{
    for (const ClassDesc &desc : kClasses) {
        std::vector<std::string> published;
        for (const FieldDesc &field : desc.fields) {
            if ((field.use & kPublished) != 0)
                published.push_back(schemaType(field.type) + " " + field.name);
        }
        EXPECT_EQ(declared(schemaClass(desc.cimName).properties), published) << desc.cimName;
    }
    EXPECT_THAT(declared(schemaClass(kThreadClass).properties), ElementsAre("uint16 ThreadRunning"));
}

TEST(Schema, LifeSpanTotalIsNoProperty)
{
    EXPECT_THAT(declared(schemaClass("TAV_StorageTotalNumber").properties),
                Not(testing::Contains(HasSubstr("LifeSpanTotalNumber"))));
}

TEST(Schema, TheOnlyKeyIsIndexAndItIsAString)
{
    const std::set<std::string> withoutKey = {"TAV_StorageConfig", "TAV_StorageTotalNumber", kThreadClass};
    for (const mof::Class &c : schema()) {
        std::vector<std::string> keys;
        for (const mof::Property &property : c.properties) {
            if (property.qualifiers.contains("key"))
                keys.push_back(property.type + " " + property.name);
        }
        if (withoutKey.contains(c.name))
            EXPECT_TRUE(keys.empty()) << c.name;
        else
            EXPECT_THAT(keys, ElementsAre("string Index")) << c.name;
    }
    for (const ClassDesc &desc : kClasses) {
        const bool keyed =
            std::any_of(desc.fields.begin(), desc.fields.end(), [](const FieldDesc &f) { return f.key; });
        EXPECT_NE(keyed, withoutKey.contains(desc.cimName)) << desc.cimName;
    }
}

TEST(Schema, MethodsTakeTextAndReturnANumber)
{
    const std::map<std::string, std::vector<std::string>> methods = {
        {"TAV_StorageConfig",
         {"uint32 SetMonitorCycle(string MonitorCycle)", "uint32 SetHardDiskSmartMode(string HardDiskSmartMode)"}},
        {kThreadClass, {"uint32 StartMonitoringThread()", "uint32 StopMonitoringThread()"}}};
    for (const mof::Class &c : schema()) {
        const auto expected = methods.find(c.name);
        EXPECT_EQ(declared(c.methods), expected == methods.end() ? std::vector<std::string>() : expected->second)
            << c.name;
        for (const mof::Method &method : c.methods) {
            for (const mof::Parameter &parameter : method.parameters)
                EXPECT_TRUE(parameter.qualifiers.contains("in")) << c.name << "." << method.name;
        }
    }
}

TEST(Schema, EverythingIsDescribedInAFullSentence)
{
    for (const Described &one : everything()) {
        const auto description = one.qualifiers.find("description");
        ASSERT_NE(description, one.qualifiers.end()) << one.where;
        ASSERT_GT(description->second.size(), 5U) << one.where;
        EXPECT_EQ(description->second.back(), '.') << one.where;
    }
}

// A broker's compiler may know no other qualifier without the standard schema, and not more of the language.
TEST(Schema, StaysWithinPlainMof)
{
    const std::set<std::string> plain = {"description", "key", "in"};
    for (const Described &one : everything()) {
        for (const auto &[name, value] : one.qualifiers)
            EXPECT_TRUE(plain.contains(name)) << one.where << ": " << name;
    }
    for (const mof::Class &c : schema())
        EXPECT_EQ(c.superclass, "") << c.name;
    for (const char c : fileText("schema/TAV_Storage.mof"))
        ASSERT_TRUE(c == '\n' || (c >= ' ' && c <= '~')) << "byte " << int{c};
}

TEST(MofReader, RefusesWhatIsNoSchema)
{
    for (const char *text :
         {"class", "class A", "class A {", "class A {}", "class A { uint16 };", "class A { uint16 B };",
          "class A { uint16 B; }", "class A { uint16 B(string); };", "class A { uint16 B(string C string D); };",
          "[Key class A {};", "[Key(1)] class A {};", "[Key, Key] class A {};", "#pragma include (\"x.mof\")",
          "struct A {};", "class A { [Description(\"x)] uint16 B; };", "class A {}; ;"})
        EXPECT_THROW(mof::parse(text), std::runtime_error) << text;
}

TEST(MofReader, ReadsWhatTheSchemaUses)
{
    const auto classes =
        mof::parse("// comment\n/* class X {}; */ [Description(\"one \" \"two\")] class A : B\n"
                   "{ [Key, Description(\"k \\\"q\\\"\")] string C; uint32 D([IN] string E, uint16 F); };");
    ASSERT_EQ(classes.size(), 1U);
    EXPECT_EQ(classes[0].name, "A");
    EXPECT_EQ(classes[0].superclass, "B");
    EXPECT_EQ(classes[0].qualifiers.at("description"), "one two");
    EXPECT_THAT(declared(classes[0].properties), ElementsAre("string C"));
    EXPECT_EQ(classes[0].properties[0].qualifiers.at("description"), "k \"q\"");
    EXPECT_TRUE(classes[0].properties[0].qualifiers.contains("key"));
    EXPECT_THAT(declared(classes[0].methods), ElementsAre("uint32 D(string E, uint16 F)"));
}

struct Section {
    std::string name;
    std::map<std::string, std::string> entries;
};

// "[Class]" lines, each followed by indented "name: value" lines.
std::vector<Section> registration()
{
    std::vector<Section> sections;
    std::istringstream lines(fileText("schema/TAVStorageProvider.reg"));
    for (std::string line; std::getline(lines, line);) {
        if (line.empty())
            continue;
        if (line.front() == '[') {
            EXPECT_EQ(line.back(), ']') << line;
            sections.push_back({line.substr(1, line.size() - 2), {}});
            continue;
        }
        const size_t name = line.find_first_not_of(' ');
        const size_t colon = line.find(": ");
        if (sections.empty() || name == 0 || colon == std::string::npos) {
            ADD_FAILURE() << "no entry: " << line;
            continue;
        }
        EXPECT_TRUE(sections.back().entries.emplace(line.substr(name, colon - name), line.substr(colon + 2)).second)
            << "twice: " << line;
    }
    return sections;
}

TEST(Registration, HasASectionForEachClass)
{
    std::vector<std::string> names;
    for (const Section &section : registration())
        names.push_back(section.name);
    EXPECT_THAT(names, testing::UnorderedElementsAreArray(classNames()));
}

TEST(Registration, EveryClassIsServedAsInstancesAndMethodsByTheOneSharedObject)
{
    const std::map<std::string, std::string> entries = {{"provider", "TAVStorageProvider"},
                                                        {"location", "TAVStorageProvider"},
                                                        {"type", "instance method"},
                                                        {"namespace", "root/TAVKIT/AS"}};
    for (const Section &section : registration())
        EXPECT_EQ(section.entries, entries) << section.name;
}

// The broker makes the factories' names from the provider's.
TEST(Registration, NamesTheProviderWhoseFactoriesAreExported)
{
    const std::string exports = fileText("src/provider/exports.map");
    for (const Section &section : registration()) {
        EXPECT_THAT(exports, HasSubstr(section.entries.at("provider") + "_Create_InstanceMI"));
        EXPECT_THAT(exports, HasSubstr(section.entries.at("provider") + "_Create_MethodMI"));
    }
}

} // namespace

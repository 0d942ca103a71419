// SPDX-License-Identifier: Apache-2.0
#include "schema/schema_files.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <map>
#include <set>

using namespace schema_files;

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;

std::string schemaType(CMPIType type)
{
    switch (type) {
    case CMPI_uint16:
        return "uint16";
    case CMPI_sint16:
        return "sint16";
    case CMPI_uint32:
        return "uint32";
    case CMPI_sint32:
        return "sint32";
    case CMPI_uint64:
        return "uint64";
    case CMPI_boolean:
        return "boolean";
    case CMPI_chars:
        return "string";
    default:
        return "no type of the schema";
    }
}

TEST(Schema, HasEachClassOnce)
{
    std::vector<std::string> names;
    for (const mof::Class &c : schema()) {
        names.push_back(c.name);
    }
    EXPECT_EQ(names.size(), 13U);
    EXPECT_THAT(names, testing::UnorderedElementsAreArray(classNames()));
}

TEST(Schema, PropertiesAreWhatTheProviderPublishes)
{
    for (const ClassDesc &desc : kClasses) {
        std::vector<std::string> published;
        for (const FieldDesc &field : publishedFields(desc)) {
            published.push_back(schemaType(field.type) + " " + field.name);
        }
        EXPECT_EQ(declared(schemaClass(desc.cimName).properties), published) << desc.cimName;
    }
    EXPECT_THAT(declared(schemaClass(kThreadClass).properties), ElementsAre("uint16 ThreadRunning"));
    std::vector<std::string> ofDisks;
    for (const DiskProperty &property : diskProperties()) {
        ofDisks.push_back(schemaType(property.type) + " " + property.name);
    }
    EXPECT_EQ(declared(schemaClass(kDiskClass).properties), ofDisks);
}

TEST(Schema, LifeSpanTotalIsNoProperty)
{
    EXPECT_THAT(declared(schemaClass("TAV_StorageTotalNumber").properties),
                Not(testing::Contains(HasSubstr("LifeSpanTotalNumber"))));
}

TEST(Schema, TheOnlyKeyIsIndexOrDiskIDAndItIsAString)
{
    const std::set<std::string> withoutKey = {"TAV_StorageConfig", "TAV_StorageTotalNumber", kThreadClass};
    for (const mof::Class &c : schema()) {
        std::vector<std::string> keys;
        for (const mof::Property &property : c.properties) {
            if (property.qualifiers.contains("key")) {
                keys.push_back(property.type + " " + property.name);
            }
        }
        if (withoutKey.contains(c.name)) {
            EXPECT_TRUE(keys.empty()) << c.name;
        } else {
            EXPECT_THAT(keys, ElementsAre(c.name == kDiskClass ? "string DiskID" : "string Index")) << c.name;
        }
    }
    for (const ClassDesc &desc : kClasses) {
        const bool keyed =
            std::any_of(desc.fields.begin(), desc.fields.end(), [](const FieldDesc &f) { return f.key; });
        EXPECT_NE(keyed, withoutKey.contains(desc.cimName)) << desc.cimName;
    }
    for (const DiskProperty &property : diskProperties()) {
        EXPECT_EQ(property.key, property.name == std::string("DiskID")) << property.name;
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
            for (const mof::Parameter &parameter : method.parameters) {
                EXPECT_TRUE(parameter.qualifiers.contains("in")) << c.name << "." << method.name;
                EXPECT_FALSE(parameter.qualifiers.contains("out")) << c.name << "." << method.name;
            }
        }
    }
}

} // namespace

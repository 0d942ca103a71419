// SPDX-License-Identifier: Apache-2.0
#include "schema/schema_files.h"

#include <gmock/gmock.h>

#include <map>
#include <sstream>

using namespace schema_files;

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

struct Section {
    std::string name;
    std::map<std::string, std::string> entries;
};

// "[Class]" lines, each followed by indented "name: value" lines.
std::vector<Section> sfcbRegistration()
{
    std::vector<Section> sections;
    std::istringstream lines(fileText("schema/TAVStorageProvider.reg"));
    for (std::string line; std::getline(lines, line);) {
        if (line.empty()) {
            continue;
        }
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

TEST(SfcbRegistration, HasASectionForEachClass)
{
    std::vector<std::string> names;
    for (const Section &section : sfcbRegistration()) {
        names.push_back(section.name);
    }
    EXPECT_THAT(names, testing::UnorderedElementsAreArray(classNames()));
}

TEST(SfcbRegistration, OneSharedObjectServesEveryClass)
{
    const std::map<std::string, std::string> entries = {{"provider", "TAVStorageProvider"},
                                                        {"location", "TAVStorageProvider"},
                                                        {"type", "instance method"},
                                                        {"namespace", "root/TAVKIT/AS"}};
    for (const Section &section : sfcbRegistration()) {
        EXPECT_EQ(section.entries, entries) << section.name;
    }
}

using Instances = std::vector<mof::Instance>;

Instances pegasusRegistration(const std::string &className)
{
    Instances found;
    for (const mof::Instance &instance : mof::parseInstances(fileText("schema/TAVStorageProvider.pegasus.mof"))) {
        EXPECT_THAT((std::vector<std::string>{"PG_ProviderModule", "PG_Provider", "PG_ProviderCapabilities"}),
                    testing::Contains(instance.className));
        if (instance.className == className) {
            found.push_back(instance);
        }
    }
    return found;
}

mof::Values valuesOf(const mof::Instance &instance, const std::string &property)
{
    const auto found = instance.properties.find(property);
    EXPECT_NE(found, instance.properties.end()) << instance.className << "." << property;
    return found == instance.properties.end() ? mof::Values() : found->second;
}

TEST(PegasusRegistration, HasOneModuleOfThisVersionForTheOneSharedObject)
{
    const Instances modules = pegasusRegistration("PG_ProviderModule");
    ASSERT_EQ(modules.size(), 1U);
    EXPECT_THAT(valuesOf(modules[0], "Name"), ElementsAre("TAVStorageProviderModule"));
    EXPECT_THAT(valuesOf(modules[0], "Vendor"), ElementsAre("TAV"));
    EXPECT_THAT(valuesOf(modules[0], "Version"), ElementsAre(TAV_VERSION));
    EXPECT_THAT(valuesOf(modules[0], "InterfaceType"), ElementsAre("CMPI"));
    EXPECT_THAT(valuesOf(modules[0], "InterfaceVersion"), ElementsAre("2.0.0"));
    EXPECT_THAT(valuesOf(modules[0], "Location"), ElementsAre("TAVStorageProvider"));
    EXPECT_THAT(valuesOf(modules[0], "UserContext"), ElementsAre("4"));
    const Instances providers = pegasusRegistration("PG_Provider");
    ASSERT_EQ(providers.size(), 1U);
    EXPECT_THAT(valuesOf(providers[0], "ProviderModuleName"), ElementsAre("TAVStorageProviderModule"));
    EXPECT_THAT(valuesOf(providers[0], "Name"), ElementsAre("TAVStorageProvider"));
}

// Types of providers there: 2 instances, 5 methods.
TEST(PegasusRegistration, NamesEveryClassOnceWithWhatItServes)
{
    std::vector<std::string> names;
    for (const mof::Instance &capability : pegasusRegistration("PG_ProviderCapabilities")) {
        const mof::Values name = valuesOf(capability, "ClassName");
        ASSERT_EQ(name.size(), 1U);
        names.push_back(name[0]);
        EXPECT_EQ(valuesOf(capability, "CapabilityID"), name);
        EXPECT_THAT(valuesOf(capability, "ProviderModuleName"), ElementsAre("TAVStorageProviderModule"));
        EXPECT_THAT(valuesOf(capability, "ProviderName"), ElementsAre("TAVStorageProvider"));
        EXPECT_THAT(valuesOf(capability, "Namespaces"), ElementsAre("root/TAVKIT/AS"));
        EXPECT_THAT(valuesOf(capability, "SupportedProperties"), IsEmpty());
        EXPECT_THAT(valuesOf(capability, "SupportedMethods"), IsEmpty());
        const bool methods = !schemaClass(name[0]).methods.empty();
        EXPECT_EQ(valuesOf(capability, "ProviderType"), methods ? mof::Values({"2", "5"}) : mof::Values({"2"}))
            << name[0];
    }
    EXPECT_THAT(names, testing::UnorderedElementsAreArray(classNames()));
}

// Brokers make the factories' names from the provider's.
TEST(Registration, NamesTheProviderWhoseFactoriesAreExported)
{
    std::vector<std::string> names;
    for (const Section &section : sfcbRegistration()) {
        names.push_back(section.entries.at("provider"));
    }
    for (const mof::Instance &provider : pegasusRegistration("PG_Provider")) {
        names.push_back(valuesOf(provider, "Name").at(0));
    }
    const std::string exports = fileText("src/provider/exports.map");
    for (const std::string &name : names) {
        EXPECT_THAT(exports, HasSubstr(name + "_Create_InstanceMI"));
        EXPECT_THAT(exports, HasSubstr(name + "_Create_MethodMI"));
    }
}

} // namespace

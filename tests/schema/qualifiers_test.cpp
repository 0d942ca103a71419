// SPDX-License-Identifier: Apache-2.0
#include "schema/schema_files.h"

#include "tavstrg/schema_words.h"
#include "tavstrg/words.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <cctype>
#include <functional>
#include <map>
#include <set>

using namespace schema_files;

namespace {

using testing::ElementsAre;

// All properties as "class.property".
std::map<std::string, const mof::Property *> allProperties()
{
    std::map<std::string, const mof::Property *> all;
    for (const mof::Class &c : schema()) {
        for (const mof::Property &property : c.properties) {
            all.emplace(c.name + "." + property.name, &property);
        }
    }
    return all;
}

mof::Values qualifier(const std::string &property, const std::string &name)
{
    const auto all = allProperties();
    const auto found = all.find(property);
    if (found == all.end() || !found->second->qualifiers.contains(name)) {
        return {};
    }
    return found->second->qualifiers.at(name);
}

TEST(Qualifiers, EverythingIsDescribedInFullSentences)
{
    for (const Described &one : everything()) {
        const auto description = one.qualifiers.find("description");
        ASSERT_NE(description, one.qualifiers.end()) << one.where;
        ASSERT_EQ(description->second.size(), 1U) << one.where;
        const std::string &text = description->second[0];
        ASSERT_GT(text.size(), 10U) << one.where;
        EXPECT_TRUE(text.front() >= 'A' && text.front() <= 'Z') << one.where;
        EXPECT_EQ(text.back(), '.') << one.where;
    }
}

// A broker's compiler may know no qualifier but the standard schema's, and not more of the language.
TEST(Qualifiers, AreThoseOfTheStandardSchema)
{
    const std::set<std::string> standard = {"description", "key", "in", "units", "valuemap", "values", "maxlen"};
    for (const Described &one : everything()) {
        for (const auto &[name, values] : one.qualifiers) {
            EXPECT_TRUE(standard.contains(name)) << one.where << ": " << name;
        }
    }
    for (const mof::Class &c : schema()) {
        EXPECT_EQ(c.superclass, "") << c.name;
    }
    for (const char c : fileText("schema/TAV_Storage.mof")) {
        ASSERT_TRUE(c == '\n' || (c >= ' ' && c <= '~')) << "byte " << int{c};
    }
}

// A new number is put where it belongs before this passes.
TEST(Qualifiers, EveryNumberHasAUnitOrValuesOrIsACountOrAddress)
{
    const std::map<std::string, std::string> units = {
        {"TAV_StorageConfig.MonitorCycle", "Seconds"},
        {"TAV_StorageConfig.MonitorCycleMin", "Seconds"},
        {"TAV_StorageConfig.MonitorCycleMax", "Seconds"},
        {"TAV_StorageConfig.MonitorCycleDefault", "Seconds"},
        {"TAV_StorageHardDisk.Capacity", "MegaBytes"},
        {"TAV_StorageDisk.SizeBytes", "Bytes"},
        {"TAV_StorageDisk.LogicalBlockBytes", "Bytes"},
        {"TAV_StorageDisk.PhysicalBlockBytes", "Bytes"},
        {"TAV_StorageDisk.RotationsPerMinute", "Revolutions per Minute"},
        {"TAV_StorageDisk.HealthSinceSeconds", "Seconds"},
        {"TAV_StorageDisk.EnduranceUsedPercent", "Percent"},
        {"TAV_StorageDisk.SparePercent", "Percent"},
        {"TAV_StorageDisk.TemperatureCelsius", "Degrees C"},
        {"TAV_StorageDisk.PowerOnHours", "Hours"},
        {"TAV_StorageDisk.BytesRead", "Bytes"},
        {"TAV_StorageDisk.BytesWritten", "Bytes"},
        {"TAV_StorageDisk.FirstSeenSeconds", "Seconds"},
        {"TAV_StorageDisk.LastAskedSeconds", "Seconds"},
    };
    const std::set<std::string> plain = {"InterruptNumber",   "DeviceTypeIndex",
                                         "ControllerIndex",   "Bus",
                                         "TargetID",          "LUN",
                                         "HDDIndex",          "InterfaceTypeIndex",
                                         "CylindersPerUnit",  "SectorsPerTrack",
                                         "TracksPerCylinder", "PathCount",
                                         "NVMeNamespace",     "PowerCycles",
                                         "MediaErrors",       "ReallocatedSectors",
                                         "PendingSectors",    "HardDiskIndex"};
    for (const auto &[name, property] : allProperties()) {
        const bool isTotal = name.starts_with("TAV_StorageTotalNumber.");
        const auto unit = units.find(name);
        EXPECT_EQ(qualifier(name, "units"), unit == units.end() ? mof::Values() : mof::Values{unit->second}) << name;
        const bool otherwiseClear = unit != units.end() || isTotal || property->type == "string" ||
                                    property->type == "boolean" || plain.contains(property->name);
        EXPECT_NE(property->qualifiers.contains("valuemap"), otherwiseClear) << name;
    }
}

TEST(Qualifiers, EachMappedValueHasItsWord)
{
    for (const Described &one : everything()) {
        const bool mapped = one.qualifiers.contains("valuemap");
        ASSERT_EQ(mapped, one.qualifiers.contains("values")) << one.where;
        if (!mapped) {
            continue;
        }
        const mof::Values &map = one.qualifiers.at("valuemap");
        EXPECT_EQ(map.size(), one.qualifiers.at("values").size()) << one.where;
        EXPECT_EQ(std::set<std::string>(map.begin(), map.end()).size(), map.size()) << one.where;
    }
}

// The codes that the tool has words for, from -20 to 20; for any other code it says the number.
mof::Values codesKnownToTheTool(const std::function<std::string(int)> &words)
{
    mof::Values known;
    for (int code = -20; code <= 20; ++code) {
        if (words(code).find("(" + std::to_string(code) + ")") == std::string::npos) {
            known.push_back(std::to_string(code));
        }
    }
    return known;
}

// What the tool prints beside a code; the code itself in parentheses if it knows none.
std::function<std::string(int)> printedWords(const char *className, const char *property)
{
    return [=](int code) {
        const std::string meaning =
            tool::schemaMeaning(className, property, broker::Value::signedNumber(code, CMPI_sint16));
        return meaning.empty() ? "(" + std::to_string(code) + ")" : meaning;
    };
}

TEST(Qualifiers, ValueMapsHaveTheCodesThatTheToolKnows)
{
    using tool::deviceTypeWords;
    const std::map<std::string, std::function<std::string(int)>> words = {
        {"TAV_StorageController.InterfaceType", tool::interfaceWords},
        {"TAV_StorageSCSIDevice.DeviceType", [](int code) { return deviceTypeWords(tool::kScsi, code); }},
        {"TAV_StorageIDEDevice.DeviceType", [](int code) { return deviceTypeWords(tool::kIde, code); }},
        {"TAV_StorageIDEDevice.IDEConfiguration", tool::drivePositionWords},
        {"TAV_StorageHardDisk.SmartStatus", printedWords("TAV_StorageHardDisk", "SmartStatus")},
        {"TAV_StorageDisk.DiskIDSource", printedWords(kDiskClass, "DiskIDSource")},
        {"TAV_StorageDisk.Transport", printedWords(kDiskClass, "Transport")},
        {"TAV_StorageDisk.PowerState", printedWords(kDiskClass, "PowerState")},
        {"TAV_StorageDisk.HealthState", printedWords(kDiskClass, "HealthState")},
        {"TAV_StorageLifeSpan.EnduranceRemaining", tool::lifeSpanWords},
    };
    for (const auto &[name, code] : words) {
        EXPECT_TRUE(allProperties().contains(name)) << name;
    }
    for (const auto &[name, property] : allProperties()) {
        if (!property->qualifiers.contains("valuemap")) {
            continue;
        }
        const mof::Values known = words.contains(name) ? codesKnownToTheTool(words.at(name)) : mof::Values({"0", "1"});
        EXPECT_EQ(qualifier(name, "valuemap"), known) << name;
    }
}

// The thread's methods answer with their return value, the configuration's with the status of the call.
TEST(Qualifiers, AMethodThatReturnsAValueSaysWhatItMeans)
{
    for (const mof::Class &one : schema()) {
        for (const mof::Method &method : one.methods) {
            const bool returns = one.name == kThreadClass;
            EXPECT_EQ(method.qualifiers.contains("valuemap"), returns) << method.name;
            const std::string description = method.qualifiers.at("description").front();
            EXPECT_NE(description.find(returns ? "The return value tells" : "No value is returned"), std::string::npos)
                << method.name << ": " << description;
            if (returns) {
                EXPECT_EQ(method.qualifiers.at("valuemap"), mof::Values({"0", "1"})) << method.name;
            }
        }
    }
}

TEST(Qualifiers, InterfacesOfDevicesHaveTheWordsOfTheTool)
{
    for (const char *of : {"HardDisk", "CDROM", "Tape", "OpticalMemory", "Misc"}) {
        EXPECT_THAT(qualifier("TAV_Storage" + std::string(of) + ".InterfaceType", "values"),
                    ElementsAre(tool::interfaceWords(tool::kScsi), tool::interfaceWords(tool::kIde)));
    }
}

// Of a text, the characters that its record has room for; of the key, the digits of its 16-bit number.
TEST(Qualifiers, TextsAreAsLongAsTheirRecordsAllow)
{
    for (const ClassDesc &desc : kClasses) {
        for (const FieldDesc &field : publishedFields(desc)) {
            const std::string name = std::string(desc.cimName) + "." + field.name;
            mof::Values expected;
            if (field.type == CMPI_chars) {
                expected = {field.key ? "5" : std::to_string(field.size - 1)};
            }
            EXPECT_EQ(qualifier(name, "maxlen"), expected) << name;
        }
    }
    for (const DiskProperty &property : diskProperties()) {
        const std::string name = std::string(kDiskClass) + "." + property.name;
        const mof::Values room = {std::to_string(property.room - 1)};
        EXPECT_EQ(qualifier(name, "maxlen"), property.type == CMPI_chars ? room : mof::Values()) << name;
    }
}

// The words of the value maps are those of the engine, as its output has them.
TEST(Qualifiers, WordsOfADiskAreThoseOfTheEngine)
{
    using namespace disks;
    const auto check = [](const char *property, auto nameOfCode) {
        const mof::Values words = qualifier(std::string(kDiskClass) + "." + property, "values");
        for (size_t code = 0; code < words.size(); ++code) {
            std::string word = words[code];
            std::transform(word.begin(), word.end(), word.begin(), [](unsigned char c) { return std::tolower(c); });
            EXPECT_EQ(word.substr(0, 2), std::string(nameOfCode(code)).substr(0, 2)) << property << " " << word;
        }
        EXPECT_STREQ(nameOfCode(words.size()), nameOfCode(0)) << property << ": a code has no word";
    };
    check("HealthState", [](size_t code) { return nameOf(static_cast<HealthState>(code)); });
    check("PowerState", [](size_t code) { return nameOf(static_cast<PowerState>(code)); });
    check("DiskIDSource", [](size_t code) { return nameOf(static_cast<IdentitySource>(code)); });
    const mof::Values transports = qualifier("TAV_StorageDisk.Transport", "values");
    EXPECT_EQ(transports.size(), static_cast<size_t>(Transport::pmem) + 1);
    EXPECT_EQ(transports.at(static_cast<size_t>(Transport::nvme)), "NVMe");
    EXPECT_EQ(transports.at(static_cast<size_t>(Transport::fibreChannel)), "Fibre Channel");
    EXPECT_EQ(transports.at(static_cast<size_t>(Transport::mmc)), "MMC");
}

} // namespace

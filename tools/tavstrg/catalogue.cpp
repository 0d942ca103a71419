// SPDX-License-Identifier: Apache-2.0
#include "tavstrg/catalogue.h"

#include "tavstrg/words.h"

#include "classes/disk_properties.h"
#include "records/records.h"

#include <algorithm>
#include <charconv>

using namespace tavstrg;

namespace tool {
namespace {

constexpr std::string_view kPrefix = "TAV_Storage";
constexpr const char *kMonitorCycle = "MonitorCycle";
constexpr const char *kSmartMode = "HardDiskSmartMode";

ClassEntry fromDescription(const ClassDesc &desc)
{
    ClassEntry entry{desc.cimName, {}, {}};
    for (const FieldDesc &field : desc.fields) {
        if ((field.use & kPublished) != 0) {
            entry.properties.push_back({field.name, field.type, field.key});
        }
    }
    if (desc.id == TAV_CID_STRG_CONF) {
        entry.methods.push_back({"SetMonitorCycle", {kMonitorCycle}});
        entry.methods.push_back({"SetHardDiskSmartMode", {kSmartMode}});
    }
    return entry;
}

std::vector<ClassEntry> makeCatalogue()
{
    std::vector<ClassEntry> entries;
    for (const ClassDesc &desc : kClasses) {
        entries.push_back(fromDescription(desc));
    }
    // The one class that has no record: its property is read live.
    entries.push_back({"TAV_StorageThread",
                       {{"ThreadRunning", CMPI_uint16, false}},
                       {{"StartMonitoringThread", {}}, {"StopMonitoringThread", {}}}});
    // The one class that an administrator switches on.
    ClassEntry disk{kDiskClass, {}, {}};
    for (const DiskProperty &property : diskProperties()) {
        disk.properties.push_back({property.name, property.type, property.key});
    }
    entries.push_back(disk);
    return entries;
}

} // namespace

bool ClassEntry::keyed() const
{
    return std::any_of(properties.begin(), properties.end(), [](const PropertyEntry &p) { return p.key; });
}

std::string ClassEntry::keyName() const
{
    const auto key = std::find_if(properties.begin(), properties.end(), [](const PropertyEntry &p) { return p.key; });
    return key == properties.end() ? "" : key->name;
}

std::string ClassEntry::shortName() const
{
    return name.substr(kPrefix.size());
}

const std::vector<ClassEntry> &catalogue()
{
    static const std::vector<ClassEntry> entries = makeCatalogue();
    return entries;
}

const ClassEntry *findClass(std::string_view given)
{
    for (const ClassEntry &entry : catalogue()) {
        if (sameIgnoringCase(entry.name, given) || sameIgnoringCase(entry.shortName(), given)) {
            return &entry;
        }
    }
    return nullptr;
}

const MethodEntry *findMethod(const ClassEntry &entry, std::string_view given)
{
    const auto found = std::find_if(entry.methods.begin(), entry.methods.end(),
                                    [given](const MethodEntry &m) { return sameIgnoringCase(m.name, given); });
    return found == entry.methods.end() ? nullptr : &*found;
}

NumberRange rangeOf(std::string_view argument)
{
    return argument == kMonitorCycle ? NumberRange{10, 3600} : NumberRange{0, 1};
}

bool isWithin(const NumberRange &range, std::string_view text)
{
    int number = 0;
    const bool digits = !text.empty() && text.find_first_not_of("0123456789") == text.npos;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    return digits && error == std::errc() && number >= range.least && number <= range.most;
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
    case CMPI_sint32:
        return "sint32";
    case CMPI_uint64:
        return "uint64";
    case CMPI_boolean:
        return "boolean";
    default:
        return "string";
    }
}

} // namespace tool

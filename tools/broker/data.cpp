// SPDX-License-Identifier: Apache-2.0
#include "broker/data.h"

#include <algorithm>
#include <cstring>
#include <strings.h>

namespace broker {

bool sameName(std::string_view a, std::string_view b)
{
    return a.size() == b.size() && strncasecmp(a.data(), b.data(), a.size()) == 0;
}

bool NamedData::same(std::string_view a, std::string_view b) const
{
    return exact_ ? a == b : sameName(a, b);
}

const Datum *NamedData::find(std::string_view name) const
{
    const auto found =
        std::find_if(entries_.begin(), entries_.end(), [&](const NamedDatum &entry) { return same(entry.name, name); });
    return found == entries_.end() ? nullptr : &found->datum;
}

void NamedData::set(std::string_view name, Datum datum)
{
    const auto found =
        std::find_if(entries_.begin(), entries_.end(), [&](const NamedDatum &entry) { return same(entry.name, name); });
    if (found == entries_.end()) {
        entries_.push_back({std::string(name), std::move(datum)});
    } else {
        found->datum = std::move(datum);
    }
}

bool NamedData::remove(std::string_view name)
{
    return std::erase_if(entries_, [&](const NamedDatum &entry) { return same(entry.name, name); }) > 0;
}

const Property *ClassData::find(std::string_view property) const
{
    const auto found = std::find_if(properties.begin(), properties.end(),
                                    [&](const Property &candidate) { return sameName(candidate.name, property); });
    return found == properties.end() ? nullptr : &*found;
}

const Datum *InstanceData::find(std::string_view property) const
{
    const Datum *const set = properties.find(property);
    return set != nullptr ? set : presets.find(property);
}

bool InstanceData::isKey(std::string_view property) const
{
    if (known != nullptr) {
        const Property *const declared = known->find(property);
        return declared != nullptr && declared->key;
    }
    return std::any_of(pathKeys.begin(), pathKeys.end(),
                       [&](const std::string &key) { return sameName(key, property); });
}

size_t plainWidth(CMPIType type)
{
    switch (type) {
    case CMPI_boolean:
    case CMPI_uint8:
    case CMPI_sint8:
        return 1;
    case CMPI_char16:
    case CMPI_uint16:
    case CMPI_sint16:
        return 2;
    case CMPI_uint32:
    case CMPI_sint32:
    case CMPI_real32:
        return 4;
    case CMPI_uint64:
    case CMPI_sint64:
    case CMPI_real64:
        return 8;
    default:
        return 0;
    }
}

CMPIType storedType(CMPIType type)
{
    switch (type) {
    case CMPI_chars:
        return CMPI_string;
    case CMPI_charsA:
        return CMPI_stringA;
    default:
        return type;
    }
}

Datum nullDatum(CMPIType type)
{
    return {storedType(type), true, CMPIUint64{0}};
}

Datum textDatum(std::string text)
{
    return {CMPI_string, false, std::move(text)};
}

Datum plainDatum(CMPIType type, const void *value)
{
    CMPIUint64 word = 0;
    std::memcpy(&word, value, plainWidth(type)); // little-endian: the low bytes come first
    return {type, false, word};
}

} // namespace broker

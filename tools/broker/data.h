// SPDX-License-Identifier: Apache-2.0
// Content of objects: plain values that are copied deeply.
#pragma once

#include "broker/broker.h"

#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace broker {

struct PathData;
struct InstanceData;
struct ArrayData;
struct TimeData;

// One value with its CMPI type. All text is stored as CMPI_string. Numbers are in the value word, zero-extended from
// their width.
struct Datum {
    CMPIType type = CMPI_null;
    bool null = true;
    std::variant<CMPIUint64, std::string, std::shared_ptr<const PathData>, std::shared_ptr<const InstanceData>,
                 std::shared_ptr<const ArrayData>, std::shared_ptr<const TimeData>>
        content = CMPIUint64{0};
};

struct NamedDatum {
    std::string name;
    Datum datum;
};

// Named values in order; each name occurs once.
class NamedData {
public:
    // exact: names are compared with case, as those of context entries.
    NamedData() = default;
    explicit NamedData(bool exactNames) : exact_(exactNames) {}
    const Datum *find(std::string_view name) const;
    void set(std::string_view name, Datum datum);
    bool remove(std::string_view name);
    const std::vector<NamedDatum> &all() const { return entries_; }

private:
    bool same(std::string_view a, std::string_view b) const;
    bool exact_ = false;
    std::vector<NamedDatum> entries_;
};

struct PathData {
    std::string host;
    std::string nameSpace;
    std::string className;
    NamedData keys;
};

// A declared class.
struct ClassData {
    std::string name;
    std::vector<Property> properties;
    const Property *find(std::string_view property) const;
};

struct InstanceData {
    std::string nameSpace;
    std::string className;
    std::shared_ptr<const ClassData> known;           // null if the class is not declared
    NamedData properties;                             // properties that were set, in that order
    NamedData presets;                                // properties of a declared class that were not set, as NULL
    std::vector<std::string> pathKeys;                // names of the keys of its object path
    std::optional<std::vector<std::string>> accepted; // names that pass the property filter

    const Datum *find(std::string_view property) const;
    bool isKey(std::string_view property) const;
};

struct ArrayData {
    CMPIType type = CMPI_null; // of the elements, without the array bit
    std::vector<Datum> elements;
};

struct TimeData {
    CMPIUint64 microseconds = 0;
    bool interval = false;
};

// Compares names as CIM does, ignoring case.
bool sameName(std::string_view a, std::string_view b);

// Width of a plain type in bytes, or 0 for other types.
size_t plainWidth(CMPIType type);
// The type in which a value is stored: CMPI_string for text, also for elements of arrays.
CMPIType storedType(CMPIType type);
Datum nullDatum(CMPIType type);
Datum textDatum(std::string text);
Datum plainDatum(CMPIType type, const void *value); // reads only the bytes of the type
Datum toDatum(const Value &value);
Value toValue(const Datum &datum);
std::vector<NamedValue> toValues(const NamedData &data);
NamedData toData(const std::vector<NamedValue> &values);
Instance toInstance(const InstanceData &data);

std::string pathText(const PathData &path); // root/TAVKIT/AS:TAV_X.Index="1"
std::string timeText(const TimeData &time); // 25 characters
std::optional<TimeData> parseTime(std::string_view text);

} // namespace broker

// SPDX-License-Identifier: Apache-2.0
// What objects hold, apart from the objects themselves: plain values that copy deeply.
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

// One value with its CMPI type. Text is stored as CMPI_string, however it came. Numbers lie in the value word,
// zero-extended from their width.
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

// Values in order, each name once.
class NamedData {
public:
    // Names compare without regard to case; those of context entries exactly.
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

// The broker's knowledge of a class.
struct ClassData {
    std::string name;
    std::vector<Property> properties;
    const Property *find(std::string_view property) const;
};

struct InstanceData {
    std::string nameSpace;
    std::string className;
    std::shared_ptr<const ClassData> known;           // null when the class is not known
    NamedData properties;                             // set ones, in that order
    NamedData presets;                                // NULL ones of a known class that were not set
    std::vector<std::string> pathKeys;                // names of the keys that came with an object path
    std::optional<std::vector<std::string>> accepted; // names that the property filter lets through

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

// Names of the CIM world compare without regard to case.
bool sameName(std::string_view a, std::string_view b);

// Width in bytes of a plain type, 0 of all others.
size_t plainWidth(CMPIType type);
// The type as which a value of this type is stored: text is CMPI_string, also as elements of arrays.
CMPIType storedType(CMPIType type);
Datum nullDatum(CMPIType type);
Datum textDatum(std::string text);
Datum plainDatum(CMPIType type, const void *value); // reads as many bytes as the type has
Datum toDatum(const Value &value);
Value toValue(const Datum &datum);
std::vector<NamedValue> toValues(const NamedData &data);
NamedData toData(const std::vector<NamedValue> &values);
Instance toInstance(const InstanceData &data);

std::string pathText(const PathData &path); // root/TAVKIT/AS:TAV_X.Index="1"
std::string timeText(const TimeData &time); // 25 characters
std::optional<TimeData> parseTime(std::string_view text);

} // namespace broker

// SPDX-License-Identifier: Apache-2.0
// Conversion between the values of clients and stored values.

#include "broker/data.h"

#include <bit>

namespace broker {

namespace {

template <class Kind> const Kind &contentOf(const Datum &datum)
{
    return *std::get<std::shared_ptr<const Kind>>(datum.content);
}

Value signedValue(CMPIType type, CMPIUint64 word)
{
    switch (type) {
    case CMPI_sint8:
        return Value::signedNumber(static_cast<int8_t>(word), type);
    case CMPI_sint16:
        return Value::signedNumber(static_cast<int16_t>(word), type);
    case CMPI_sint32:
        return Value::signedNumber(static_cast<int32_t>(word), type);
    default:
        return Value::signedNumber(static_cast<int64_t>(word), type);
    }
}

std::string arrayText(const ArrayData &array)
{
    std::string text = "{";
    for (const Datum &element : array.elements) {
        text += (text.size() > 1 ? "," : "") + toValue(element).toString();
    }
    return text + "}";
}

Value describe(const Datum &datum)
{
    Value value{datum.type, std::monostate{}};
    if ((datum.type & CMPI_ARRAY) != 0) {
        value.data = arrayText(contentOf<ArrayData>(datum));
    } else if (datum.type == CMPI_ref) {
        value.data = pathText(contentOf<PathData>(datum));
    } else if (datum.type == CMPI_dateTime) {
        value.data = timeText(contentOf<TimeData>(datum));
    } else if (datum.type == CMPI_instance) {
        value.data = "instance of " + contentOf<InstanceData>(datum).className;
    }
    return value;
}

} // namespace

Value Value::text(std::string text)
{
    return {CMPI_string, std::move(text)};
}

Value Value::number(uint64_t number, CMPIType type)
{
    return {type, number};
}

Value Value::signedNumber(int64_t number, CMPIType type)
{
    return {type, number};
}

std::string Value::toString() const
{
    struct Printer {
        std::string operator()(std::monostate) const { return ""; }
        std::string operator()(bool truth) const { return truth ? "true" : "false"; }
        std::string operator()(uint64_t number) const { return std::to_string(number); }
        std::string operator()(int64_t number) const { return std::to_string(number); }
        std::string operator()(const std::string &text) const { return text; }
    };
    return std::visit(Printer{}, data);
}

const Value *Instance::find(const std::string &name) const
{
    for (const NamedValue &property : properties) {
        if (sameName(property.name, name)) {
            return &property.value;
        }
    }
    return nullptr;
}

Datum toDatum(const Value &value)
{
    struct Converter {
        CMPIType type;
        Datum operator()(std::monostate) const { return nullDatum(type == CMPI_null ? CMPIType{CMPI_string} : type); }
        Datum operator()(bool truth) const
        {
            const CMPIBoolean byte = truth ? 1 : 0;
            return plainDatum(CMPI_boolean, &byte);
        }
        Datum operator()(uint64_t number) const { return plainDatum(type, &number); }
        Datum operator()(int64_t number) const { return plainDatum(type, &number); }
        Datum operator()(const std::string &text) const { return textDatum(text); }
    };
    return std::visit(Converter{value.type}, value.data);
}

Value toValue(const Datum &datum)
{
    if (datum.null) {
        return {datum.type, std::monostate{}};
    }
    if (const std::string *const text = std::get_if<std::string>(&datum.content)) {
        return Value::text(*text);
    }
    const CMPIUint64 *const word = std::get_if<CMPIUint64>(&datum.content);
    if (word == nullptr) {
        return describe(datum);
    }
    switch (datum.type) {
    case CMPI_boolean:
        // A boolean can hold other numbers than 0 and 1; a client would receive the number.
        if (*word > 1) {
            return Value::number(*word, CMPI_boolean);
        }
        return {CMPI_boolean, *word != 0};
    case CMPI_sint8:
    case CMPI_sint16:
    case CMPI_sint32:
    case CMPI_sint64:
        return signedValue(datum.type, *word);
    case CMPI_real32:
        return {datum.type, std::to_string(std::bit_cast<float>(static_cast<uint32_t>(*word)))};
    case CMPI_real64:
        return {datum.type, std::to_string(std::bit_cast<double>(*word))};
    default:
        return Value::number(*word, datum.type);
    }
}

std::vector<NamedValue> toValues(const NamedData &data)
{
    std::vector<NamedValue> values;
    for (const NamedDatum &entry : data.all()) {
        values.push_back({entry.name, toValue(entry.datum)});
    }
    return values;
}

NamedData toData(const std::vector<NamedValue> &values)
{
    NamedData data;
    for (const NamedValue &entry : values) {
        data.set(entry.name, toDatum(entry.value));
    }
    return data;
}

Instance toInstance(const InstanceData &data)
{
    Instance instance{data.nameSpace, data.className, {}, toValues(data.properties)};
    for (const NamedValue &preset : toValues(data.presets)) {
        instance.properties.push_back(preset);
    }
    for (const NamedValue &property : instance.properties) {
        if (data.isKey(property.name) && !property.value.isNull()) {
            instance.keys.push_back(property);
        }
    }
    return instance;
}

std::string pathText(const PathData &path)
{
    std::string text = path.host.empty() ? "" : "//" + path.host + "/";
    text += path.nameSpace + ":" + path.className;
    char separator = '.';
    for (const NamedDatum &key : path.keys.all()) {
        const bool quoted = key.datum.type == CMPI_string;
        const std::string value = toValue(key.datum).toString();
        text += separator + key.name + "=" + (quoted ? "\"" + value + "\"" : value);
        separator = ',';
    }
    return text;
}

} // namespace broker

// SPDX-License-Identifier: Apache-2.0
#include "collect/inf/noscsi_inf_parse.h"

#include "collect/inf/inf_section.h"
#include "collect/inf/storage_inf.h"
#include "devcmd/trim.h"

using namespace tavstrg;

bool tavstrg::takeWholeLine(std::string_view &rest, std::string_view &line)
{
    const size_t newline = rest.find('\n');
    line = rest.substr(0, newline == std::string_view::npos ? rest.size() : newline + 1);
    rest.remove_prefix(line.size());
    return !line.empty();
}

KeyValue tavstrg::findRawValue(std::string_view text, const WantedKey &key, std::string_view &value)
{
    value = {};
    const size_t at = text.find(key.name);
    if (at == std::string_view::npos) {
        return KeyValue::noKey;
    }
    std::string_view rest = text.substr(at + key.name.size());
    if (!rest.starts_with(':')) {
        return KeyValue::noColon;
    }
    rest.remove_prefix(1);
    const size_t end = key.stop.empty() ? std::string_view::npos : rest.find(key.stop);
    value = rest.substr(0, end).substr(0, kDelSpaceMax);
    return KeyValue::found;
}

KeyValue tavstrg::findKeyValue(std::string_view text, const WantedKey &key, std::string_view &value)
{
    const KeyValue result = findRawValue(text, key, value);
    if (result != KeyValue::found) {
        return result;
    }
    value = withoutSpace(value);
    return value.size() > key.maxLength ? KeyValue::tooLong : KeyValue::found;
}

NoScsiReading tavstrg::parseNoScsiLine(std::string_view line, size_t vendorSize, size_t modelSize)
{
    if (line.empty() || line.starts_with('\n')) {
        return {NoScsiLine::empty};
    }
    if (line.size() > kMaxNoScsiLine) {
        return {NoScsiLine::tooLong};
    }
    if (line.find(kGroupManagementPort) != std::string_view::npos ||
        line.find(kGroupDiagnosticPort) != std::string_view::npos) {
        return {NoScsiLine::header};
    }
    const std::string_view text = withoutSpace(line);
    if (text.empty()) {
        return {NoScsiLine::blank};
    }
    if (text.starts_with('#')) {
        return {NoScsiLine::comment};
    }
    NoScsiReading reading;
    reading.key = findKeyValue(text, {kVendorKey, vendorSize, kModelKey}, reading.vendor);
    if (reading.key != KeyValue::found) {
        reading.kind = NoScsiLine::badVendor;
        return reading;
    }
    reading.key = findKeyValue(text, {kModelKey, modelSize}, reading.model);
    if (reading.key != KeyValue::found) {
        reading.kind = NoScsiLine::badModel;
        return reading;
    }
    const bool bothEmpty = reading.vendor.empty() && reading.model.empty();
    reading.kind = bothEmpty ? NoScsiLine::bothEmpty : NoScsiLine::entry;
    return reading;
}

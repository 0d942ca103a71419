// SPDX-License-Identifier: Apache-2.0
#include "sim/fields.h"

#include "sim/api.h"
#include "sim/paths.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <charconv>
#include <cstdio>
#include <cstring>
#include <stdexcept>
#include <string_view>

namespace sim {

namespace {

template <class T> struct Named {
    const char *name;
    T value;
};

constexpr Named<Kind> kKinds[] = {
    {"address", Kind::address},
    {"identity", Kind::identity},
    {"geometry", Kind::geometry},
    {"sectorSize", Kind::sectorSize},
    {"size", Kind::size},
    {"inquiry", Kind::inquiry},
    {"testUnitReady", Kind::testUnitReady},
    {"identify", Kind::identify},
    {"smartEnable", Kind::smartEnable},
    {"smartDisable", Kind::smartDisable},
    {"smartStatus", Kind::smartStatus},
    {"smartData", Kind::smartData},
    {"powerMode", Kind::powerMode},
    {"modeSense", Kind::modeSense},
    {"modeSelect", Kind::modeSelect},
    {"logSense", Kind::logSense},
    {"requestSense", Kind::requestSense},
    {"open", Kind::open},
    {"readLog", Kind::readLog},
    {"other", Kind::other},
    {"ata", Kind::ata},
    {"scsi", Kind::scsi},
    {"nvme", Kind::nvme},
    {"any", Kind::any},
};

constexpr Named<int> kErrors[] = {
    {"EIO", EIO},       {"EINVAL", EINVAL},       {"ENODEV", ENODEV},       {"ENXIO", ENXIO},
    {"EBUSY", EBUSY},   {"EACCES", EACCES},       {"EPERM", EPERM},         {"ENOTTY", ENOTTY},
    {"ENOMEM", ENOMEM}, {"ETIMEDOUT", ETIMEDOUT}, {"EINTR", EINTR},         {"EAGAIN", EAGAIN},
    {"ENOENT", ENOENT}, {"EFAULT", EFAULT},       {"ENOMEDIUM", ENOMEDIUM}, {"EROFS", EROFS},
};

// Peripheral device types, SPC-4.
constexpr Named<int> kTypes[] = {
    {"disk", 0},  {"tape", 1},       {"printer", 2}, {"processor", 3}, {"worm", 4},
    {"cdrom", 5}, {"scanner", 6},    {"optical", 7}, {"changer", 8},   {"communications", 9},
    {"raid", 12}, {"enclosure", 13}, {"rbc", 14},    {"zoned", 20},
};

template <class T, size_t n> const T *byName(const Named<T> (&table)[n], const std::string &name)
{
    const auto *found = std::find_if(table, table + n, [&](const Named<T> &row) { return name == row.name; });
    return found == table + n ? nullptr : &found->value;
}

int hexDigit(char c)
{
    const char *digits = "0123456789abcdef";
    const char *found = std::strchr(digits, c | 0x20);
    return c == '\0' || found == nullptr ? -1 : static_cast<int>(found - digits);
}

constexpr unsigned kDeepest = 64; // a description needs 8 levels

unsigned depthOf(std::string_view json)
{
    unsigned depth = 0;
    unsigned deepest = 0;
    bool inString = false;
    for (size_t at = 0; at < json.size(); ++at) {
        const char c = json[at];
        if (inString && c == '\\') {
            ++at;
        } else if (c == '"') {
            inString = !inString;
        } else if (!inString && (c == '{' || c == '[')) {
            deepest = std::max(deepest, ++depth);
        } else if (!inString && (c == '}' || c == ']')) {
            depth -= depth > 0 ? 1 : 0;
        }
    }
    return deepest;
}

// Names of fields come from the description: messages with them reach terminals.
std::string printable(const std::string &text)
{
    std::string result;
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        char escaped[8] = {c};
        if (byte < 0x20 || byte >= 0x7F) {
            std::snprintf(escaped, sizeof escaped, "\\x%02x", static_cast<unsigned>(byte));
        }
        result += escaped;
    }
    return result;
}

bool isPlainName(const std::string &name)
{
    return !name.empty() && std::all_of(name.begin(), name.end(), [](unsigned char c) { return std::isalnum(c) != 0; });
}

} // namespace

void checkBounds(const std::string &text)
{
    if (text.size() > Machine::kLongestDescription) {
        throw std::runtime_error("the description is longer than " + std::to_string(Machine::kLongestDescription) +
                                 " bytes");
    }
    if (depthOf(text) > kDeepest) {
        throw std::runtime_error("the description is nested deeper than " + std::to_string(kDeepest) + " levels");
    }
}

nlohmann::json parseJson(const std::string &text)
{
    checkBounds(text);
    try {
        return nlohmann::json::parse(text);
    } catch (const nlohmann::json::exception &error) {
        throw std::runtime_error(std::string("the description is not JSON: ") + error.what());
    }
}

Fields::Fields(const nlohmann::json &object, std::string place) : object_(&object), place_(std::move(place))
{
    if (!object.is_object()) {
        throw std::runtime_error((place_.empty() ? "the description" : place_) + ": expected an object");
    }
}

std::string Fields::placeOf(const std::string &name) const
{
    if (!isPlainName(name)) {
        return place_ + "[\"" + printable(name) + "\"]";
    }
    return place_.empty() ? name : place_ + "." + name;
}

void Fields::fail(const std::string &name, const std::string &what) const
{
    throw std::runtime_error(placeOf(name) + ": " + printable(what));
}

const nlohmann::json *Fields::value(const char *name)
{
    read_.insert(name);
    return has(name) ? &object_->at(name) : nullptr;
}

bool Fields::isListOfObjects(const char *name) const
{
    return has(name) && object_->at(name).is_array() && !object_->at(name).empty() &&
           object_->at(name).front().is_object();
}

std::string Fields::text(const char *name, const std::string &otherwise)
{
    const nlohmann::json *found = value(name);
    if (found == nullptr || found->is_null()) {
        return otherwise;
    }
    if (!found->is_string()) {
        fail(name, "expected a string");
    }
    return found->get<std::string>();
}

std::string Fields::textOrNumber(const char *name, const std::string &otherwise)
{
    const nlohmann::json *found = value(name);
    return found != nullptr && found->is_number_integer() ? found->dump() : text(name, otherwise);
}

std::string Fields::fileName(const char *name, const std::string &otherwise)
{
    std::string found = text(name, otherwise);
    if (!isFileName(found)) {
        fail(name, "expected a file name: not empty, \".\" or \"..\", without '/', at most 255 bytes");
    }
    return found;
}

std::string Fields::optionalFileName(const char *name, const std::string &otherwise)
{
    return text(name, otherwise).empty() ? "" : fileName(name, otherwise);
}

std::optional<std::string> Fields::lines(const char *name)
{
    const nlohmann::json *found = value(name);
    if (found == nullptr || found->is_null()) {
        return std::nullopt;
    }
    if (!found->is_array()) {
        return text(name, "");
    }
    std::string text;
    for (const nlohmann::json &line : *found) {
        if (!line.is_string()) {
            fail(name, "expected a string in each line");
        }
        text += line.get_ref<const std::string &>() + "\n";
    }
    return text;
}

bool Fields::flag(const char *name, bool otherwise)
{
    const nlohmann::json *found = value(name);
    if (found != nullptr && !found->is_boolean()) {
        fail(name, "expected true or false");
    }
    return found != nullptr ? found->get<bool>() : otherwise;
}

double Fields::seconds(const char *name, double longest)
{
    const double found = number<double>(name, 0.0);
    if (!(found >= 0 && found <= longest)) {
        fail(name, "expected seconds, from 0 to " + std::to_string(static_cast<uint64_t>(longest)));
    }
    return found;
}

bool Fields::isNull(const char *name)
{
    const bool null = has(name) && object_->at(name).is_null();
    if (null) {
        read_.insert(name);
    }
    return null;
}

std::vector<uint8_t> Fields::bytes(const char *name)
{
    const nlohmann::json *found = value(name);
    if (found == nullptr) {
        return {};
    }
    if (found->is_string()) {
        return hexBytes(name, found->get_ref<const std::string &>());
    }
    if (!found->is_array()) {
        fail(name, "expected bytes: an array of numbers, or hexadecimal text");
    }
    std::vector<uint8_t> result;
    for (const nlohmann::json &byte : *found) {
        if (!byte.is_number_unsigned() || byte.get<uint64_t>() > 255) {
            fail(name, "expected numbers from 0 to 255");
        }
        result.push_back(byte.get<uint8_t>());
    }
    return result;
}

std::vector<uint8_t> Fields::hexBytes(const char *name, const std::string &text) const
{
    std::vector<uint8_t> result;
    int high = -1;
    for (const char c : text) {
        const int digit = hexDigit(c);
        if (digit < 0 && c != ' ' && c != '-' && c != ':') {
            fail(name, "expected hexadecimal digits");
        } else if (digit >= 0 && high >= 0) {
            result.push_back(static_cast<uint8_t>(high << 4 | digit));
            high = -1;
        } else if (digit >= 0) {
            high = digit;
        }
    }
    if (high >= 0) {
        fail(name, "odd number of hexadecimal digits");
    }
    return result;
}

std::optional<Fields> Fields::object(const char *name, bool nullable)
{
    const nlohmann::json *found = value(name);
    if (found == nullptr || (nullable && found->is_null())) {
        return std::nullopt;
    }
    return Fields(*found, placeOf(name));
}

std::vector<Fields> Fields::objects(const char *name)
{
    std::vector<Fields> result;
    const nlohmann::json *found = value(name);
    if (found == nullptr) {
        return result;
    }
    if (!found->is_array()) {
        fail(name, "expected an array");
    }
    for (const nlohmann::json &element : *found) {
        result.push_back(Fields(element, placeOf(name) + "[" + std::to_string(result.size()) + "]"));
    }
    return result;
}

std::map<unsigned, unsigned> Fields::numbersByNumber(const char *name)
{
    std::map<unsigned, unsigned> result;
    const std::optional<Fields> found = object(name);
    if (!found) {
        return result;
    }
    for (const auto &[key, number] : found->object_->items()) {
        unsigned word = 0;
        const char *const end = key.data() + key.size();
        const auto [rest, error] = std::from_chars(key.data(), end, word);
        if (error != std::errc{} || rest != end || !number.is_number_unsigned() ||
            !std::in_range<unsigned>(number.get<uint64_t>())) {
            fail(name, "expected numbers by number, such as {\"83\": 16384}");
        }
        result[word] = number.get<unsigned>();
    }
    return result;
}

Kind Fields::requestKind(const char *name)
{
    const Kind *kind = byName(kKinds, text(name, "any"));
    if (kind == nullptr) {
        fail(name, "unknown kind of request");
    }
    return *kind;
}

int Fields::errorNumber(const char *name)
{
    if (!isText(name)) {
        return number<int>(name, 0);
    }
    const int *number = byName(kErrors, text(name, ""));
    if (number == nullptr) {
        fail(name, "unknown name of an error; give its number");
    }
    return *number;
}

std::string Fields::oneOf(const char *name, std::initializer_list<const char *> allowed)
{
    std::string list;
    const std::string found = text(name, *allowed.begin());
    for (const char *one : allowed) {
        if (found == one) {
            return found;
        }
        list += (list.empty() ? "" : ", ") + std::string(one);
    }
    fail(name, "expected one of: " + list);
}

int Fields::peripheralType(const char *name)
{
    if (!isText(name)) {
        return number<int>(name, 0);
    }
    const int *type = byName(kTypes, text(name, ""));
    if (type == nullptr) {
        fail(name, "unknown type; give the number of the peripheral device type");
    }
    return *type;
}

std::vector<std::string> Fields::names() const
{
    std::vector<std::string> result;
    for (const auto &[key, unused] : object_->items()) {
        result.push_back(key);
    }
    return result;
}

void Fields::finish() const
{
    for (const std::string &name : names()) {
        if (!read_.contains(name)) {
            fail(name, "unknown field");
        }
    }
}

} // namespace sim

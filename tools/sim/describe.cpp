// SPDX-License-Identifier: Apache-2.0
#include "sim/describe.h"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstring>

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
    {"modeSense", Kind::modeSense},
    {"modeSelect", Kind::modeSelect},
    {"logSense", Kind::logSense},
    {"requestSense", Kind::requestSense},
    {"other", Kind::other},
    {"ata", Kind::ata},
    {"scsi", Kind::scsi},
    {"any", Kind::any},
};

constexpr Named<int> kErrors[] = {
    {"EIO", EIO},       {"EINVAL", EINVAL}, {"ENODEV", ENODEV}, {"ENXIO", ENXIO},   {"EBUSY", EBUSY},
    {"EACCES", EACCES}, {"EPERM", EPERM},   {"ENOTTY", ENOTTY}, {"ENOMEM", ENOMEM}, {"ETIMEDOUT", ETIMEDOUT},
    {"EINTR", EINTR},   {"EAGAIN", EAGAIN}, {"ENOENT", ENOENT}, {"EFAULT", EFAULT}, {"ENOMEDIUM", ENOMEDIUM},
};

// Peripheral device types, SPC-4.
constexpr Named<int> kTypes[] = {
    {"disk", 0},    {"tape", 1},    {"printer", 2}, {"processor", 3},      {"worm", 4},  {"cdrom", 5},
    {"scanner", 6}, {"optical", 7}, {"changer", 8}, {"communications", 9}, {"raid", 12}, {"enclosure", 13},
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

} // namespace

Fields::Fields(const nlohmann::json &object, std::string place) : object_(&object), place_(std::move(place))
{
    if (!object.is_object()) {
        throw std::runtime_error(place_ + ": an object is wanted");
    }
}

void Fields::fail(const char *name, const char *what) const
{
    throw std::runtime_error(place_ + ", \"" + name + "\": " + what);
}

const nlohmann::json *Fields::value(const char *name)
{
    asked_.insert(name);
    return has(name) ? &object_->at(name) : nullptr;
}

std::string Fields::text(const char *name, const std::string &otherwise)
{
    const nlohmann::json *found = value(name);
    if (found == nullptr || found->is_null()) {
        return otherwise;
    }
    if (!found->is_string()) {
        fail(name, "a text is wanted");
    }
    return found->get<std::string>();
}

std::string Fields::textOrNumber(const char *name, const std::string &otherwise)
{
    const nlohmann::json *found = value(name);
    return found != nullptr && found->is_number_integer() ? found->dump() : text(name, otherwise);
}

bool Fields::flag(const char *name, bool otherwise)
{
    const nlohmann::json *found = value(name);
    if (found != nullptr && !found->is_boolean()) {
        fail(name, "true or false is wanted");
    }
    return found != nullptr ? found->get<bool>() : otherwise;
}

std::vector<uint8_t> Fields::bytes(const char *name)
{
    std::vector<uint8_t> result;
    const nlohmann::json *found = value(name);
    if (found == nullptr) {
        return result;
    }
    if (found->is_string()) {
        int high = -1;
        for (const char c : found->get_ref<const std::string &>()) {
            const int digit = hexDigit(c);
            if (digit < 0 && c != ' ') {
                fail(name, "hexadecimal digits are wanted");
            } else if (digit >= 0 && high >= 0) {
                result.push_back(static_cast<uint8_t>(high << 4 | digit));
                high = -1;
            } else if (digit >= 0) {
                high = digit;
            }
        }
        if (high >= 0) {
            fail(name, "the hexadecimal digits do not make whole bytes");
        }
        return result;
    }
    if (!found->is_array()) {
        fail(name, "bytes are wanted, as an array of numbers or as hexadecimal text");
    }
    for (const nlohmann::json &byte : *found) {
        if (!byte.is_number_unsigned() || byte.get<uint64_t>() > 255) {
            fail(name, "the bytes must be numbers from 0 to 255");
        }
        result.push_back(byte.get<uint8_t>());
    }
    return result;
}

std::optional<Fields> Fields::object(const char *name, bool nullable)
{
    const nlohmann::json *found = value(name);
    if (found == nullptr || (nullable && found->is_null())) {
        return std::nullopt;
    }
    return Fields(*found, place_ + ", \"" + name + "\"");
}

std::vector<Fields> Fields::objects(const char *name)
{
    std::vector<Fields> result;
    const nlohmann::json *found = value(name);
    if (found == nullptr) {
        return result;
    }
    if (!found->is_array()) {
        fail(name, "an array is wanted");
    }
    for (const nlohmann::json &element : *found) {
        result.emplace_back(element, place_ + ", \"" + name + "\"[" + std::to_string(result.size()) + "]");
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
        if (error != std::errc{} || rest != end || !number.is_number_unsigned()) {
            fail(name, "numbers by number are wanted, as in {\"83\": 16384}");
        }
        result[word] = number.get<unsigned>();
    }
    return result;
}

std::map<std::string, std::optional<std::string>> Fields::texts(const char *name)
{
    std::map<std::string, std::optional<std::string>> result;
    const std::optional<Fields> found = object(name);
    if (!found) {
        return result;
    }
    for (const auto &[key, content] : found->object_->items()) {
        if (content.is_null()) {
            result[key] = std::nullopt;
            continue;
        }
        if (!content.is_string() && !content.is_array()) {
            found->fail(key.c_str(), "a text, an array of lines, or null is wanted");
        }
        result[key] = linesText(content);
    }
    return result;
}

void Fields::finish() const
{
    for (const auto &[key, unused] : object_->items()) {
        if (!asked_.contains(key)) {
            fail(key.c_str(), "there is no such field");
        }
    }
}

ParsedJson::ParsedJson(const std::string &text)
{
    try {
        json_ = nlohmann::json::parse(text);
    } catch (const nlohmann::json::exception &error) {
        throw std::runtime_error(std::string("the description is not JSON: ") + error.what());
    }
}

std::string linesText(const nlohmann::json &value)
{
    if (value.is_string()) {
        return value.get<std::string>();
    }
    std::string text;
    for (const nlohmann::json &line : value) {
        if (!line.is_string()) {
            throw std::runtime_error("each line of a text must be a text");
        }
        text += line.get_ref<const std::string &>() + "\n";
    }
    return text;
}

Kind kindOf(Fields &fields, const char *name)
{
    const Kind *kind = byName(kKinds, fields.text(name, "any"));
    if (kind == nullptr) {
        fields.fail(name, "there is no such kind of request");
    }
    return *kind;
}

int errorNumberOf(Fields &fields, const char *name)
{
    if (!fields.isText(name)) {
        return fields.number<int>(name, 0);
    }
    const int *number = byName(kErrors, fields.text(name, ""));
    if (number == nullptr) {
        fields.fail(name, "the error name is not known; give its number");
    }
    return *number;
}

int peripheralTypeOf(Fields &fields, const char *name)
{
    if (!fields.isText(name)) {
        return fields.number<int>(name, 0);
    }
    const int *type = byName(kTypes, fields.text(name, ""));
    if (type == nullptr) {
        fields.fail(name, "the type is not known; give the number of the peripheral device type");
    }
    return *type;
}

} // namespace sim

// SPDX-License-Identifier: Apache-2.0
// Reading of a description's JSON, field by field: a field that nobody asked for is a mistake of its writer.
#pragma once

#include "sim/description.h"

#include <memory>
#include <nlohmann/json.hpp>
#include <set>
#include <stdexcept>
#include <utility>

namespace sim {

// An object of the description. The field "comment" is allowed everywhere.
class Fields {
public:
    Fields(const nlohmann::json &object, std::string place);

    bool has(const char *name) const { return object_->contains(name); }
    bool isNull(const char *name) const { return has(name) && object_->at(name).is_null(); }
    bool isText(const char *name) const { return has(name) && object_->at(name).is_string(); }

    std::string text(const char *name, const std::string &otherwise);
    std::string textOrNumber(const char *name, const std::string &otherwise);
    bool flag(const char *name, bool otherwise);
    template <class T> T number(const char *name, T otherwise);
    std::vector<uint8_t> bytes(const char *name); // array of numbers, or hex text
    std::optional<Fields> object(const char *name, bool nullable = false);
    std::vector<Fields> objects(const char *name);
    std::map<unsigned, unsigned> numbersByNumber(const char *name);
    // Texts by name; a text may stand as an array of its lines, null is nullopt.
    std::map<std::string, std::optional<std::string>> texts(const char *name);
    const nlohmann::json *value(const char *name); // null when absent

    void finish() const; // fails for a field that was not asked for
    [[noreturn]] void fail(const char *name, const char *what) const;

private:
    const nlohmann::json *object_;
    std::string place_;
    std::set<std::string> asked_{"comment"};
};

class ParsedJson {
public:
    explicit ParsedJson(const std::string &text);
    Fields top() const { return {json_, "the machine"}; }

private:
    nlohmann::json json_;
};

std::string linesText(const nlohmann::json &value); // a text, or an array of lines
Kind kindOf(Fields &fields, const char *name);
int errorNumberOf(Fields &fields, const char *name);
int peripheralTypeOf(Fields &fields, const char *name);
// /proc/interrupts and /proc/ioports; nullopt when the description wants them absent.
std::optional<std::string> interruptsText(Fields &fields, const Description &description);
std::optional<std::string> ioportsText(Fields &fields, const Description &description);

template <class T> T Fields::number(const char *name, T otherwise)
{
    asked_.insert(name);
    if (!has(name)) {
        return otherwise;
    }
    const nlohmann::json &value = object_->at(name);
    if (!value.is_number()) {
        fail(name, "a number is wanted");
    }
    if constexpr (std::is_integral_v<T>) {
        const bool fits = value.is_number_unsigned()
                              ? std::in_range<T>(value.get<uint64_t>())
                              : value.is_number_integer() && std::in_range<T>(value.get<int64_t>());
        if (!fits) {
            fail(name, "the number is out of range");
        }
    }
    return value.get<T>();
}

} // namespace sim

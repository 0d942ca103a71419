// SPDX-License-Identifier: Apache-2.0
// Reads a description's JSON field by field. Every mistake is reported with its place, such as
// "hosts[0].devices[2].id".
#pragma once

#include "sim/description.h"

#include <initializer_list>
#include <map>
#include <nlohmann/json.hpp>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

namespace sim {

// An object of the description. All functions throw std::runtime_error with the field's place if it has another type
// than expected. A field that is absent gives the default. "comment" is allowed in every object.
class Fields {
public:
    // The whole description.
    explicit Fields(const nlohmann::json &object) : Fields(object, "") {}

    bool has(const char *name) const { return object_->contains(name); }
    bool isNull(const char *name); // it counts as read then
    bool isText(const char *name) const { return has(name) && object_->at(name).is_string(); }
    bool isListOfObjects(const char *name) const;

    std::string text(const char *name, const std::string &otherwise);
    std::string textOrNumber(const char *name, const std::string &otherwise);
    // A text that becomes a part of a path. Throws unless it can be the name of a file.
    std::string fileName(const char *name, const std::string &otherwise);
    // The same, but the empty text is allowed.
    std::string optionalFileName(const char *name, const std::string &otherwise);
    // A text given as a string or as an array of its lines; nothing if it is null or absent.
    std::optional<std::string> lines(const char *name);
    bool flag(const char *name, bool otherwise);
    template <class T> T number(const char *name, T otherwise);
    double seconds(const char *name, double longest = 86400);
    std::vector<uint8_t> bytes(const char *name); // array of numbers, or hexadecimal text
    std::optional<Fields> object(const char *name, bool nullable = false);
    std::vector<Fields> objects(const char *name);
    std::map<unsigned, unsigned> numbersByNumber(const char *name);

    // By name.
    Kind requestKind(const char *name);
    int errorNumber(const char *name);    // or by number
    int peripheralType(const char *name); // or by number
    // One of these texts, of which the first is the default.
    std::string oneOf(const char *name, std::initializer_list<const char *> allowed);

    std::vector<std::string> names() const; // of all fields
    void finish() const;                    // throws if there is a field that was not read: it is a slip of the writer
    [[noreturn]] void fail(const std::string &name, const std::string &what) const;

private:
    Fields(const nlohmann::json &object, std::string place);
    std::string placeOf(const std::string &name) const;
    const nlohmann::json *value(const char *name); // null if absent
    std::vector<uint8_t> hexBytes(const char *name, const std::string &text) const;

    const nlohmann::json *object_;
    std::string place_;
    std::set<std::string> read_{"comment"};
};

// Throws std::runtime_error if a description is too long or nested too deeply. Its text is checked before it is parsed:
// the JSON library copies and prints values recursively, which ends the process when the stack is used up.
void checkBounds(const std::string &text);

// The JSON of a description. Throws std::runtime_error if the text is not JSON or exceeds these bounds.
nlohmann::json parseJson(const std::string &text);

template <class T> T Fields::number(const char *name, T otherwise)
{
    const nlohmann::json *found = value(name);
    if (found == nullptr) {
        return otherwise;
    }
    if (!found->is_number()) {
        fail(name, "expected a number");
    }
    if constexpr (std::is_integral_v<T>) {
        const bool fits = found->is_number_unsigned()
                              ? std::in_range<T>(found->get<uint64_t>())
                              : found->is_number_integer() && std::in_range<T>(found->get<int64_t>());
        if (!fits) {
            fail(name, "the number is out of range");
        }
    }
    return found->get<T>();
}

} // namespace sim

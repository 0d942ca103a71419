// SPDX-License-Identifier: Apache-2.0
// The lines of "noscsi.inf": parsing without reading.
#pragma once

#include <cstddef>
#include <string_view>

namespace tavstrg {

constexpr size_t kMaxNoScsiKey = 64;          // characters of a vendor or a model
constexpr size_t kMaxNoScsiSectionLine = 256; // characters of a line of a section, newline included
constexpr size_t kMaxNoScsiLine = 255;        // characters of a line that is parsed, newline included

constexpr std::string_view kVendorKey = "Vendor";
constexpr std::string_view kModelKey = "Model";

// Takes the next line, with its newline, off the front of a text; false when nothing is left.
bool takeWholeLine(std::string_view &rest, std::string_view &line);

enum class KeyValue { found, noKey, noColon, tooLong };
struct WantedKey {
    std::string_view name;
    size_t maxLength;        // characters of its value
    std::string_view stop{}; // text at which the value ends; empty: at the end
};
// Value of the first occurrence of a key in a text, which a colon must follow: untrimmed, and of no more characters
// than del_space handles. found, noKey or noColon; maxLength is ignored.
KeyValue findRawValue(std::string_view text, const WantedKey &key, std::string_view &value);
// The same, trimmed. One of more than maxLength characters is refused; value is set then, too.
KeyValue findKeyValue(std::string_view text, const WantedKey &key, std::string_view &value);

enum class NoScsiLine {
    entry,
    empty,   // nothing before its end
    tooLong, //
    header,  // repeats a section header
    blank,
    comment,
    badVendor, // no key, no colon behind it, or too long
    badModel,
    bothEmpty,
};

struct NoScsiReading {
    NoScsiLine kind = NoScsiLine::blank;
    KeyValue key = KeyValue::found; // why, with badVendor and badModel
    std::string_view vendor{};
    std::string_view model{};
};

// What a line of a section is, and its vendor and model when it has them. One of the two may be empty. The sizes are
// the most characters that each may have.
NoScsiReading parseNoScsiLine(std::string_view line, size_t vendorSize = kMaxNoScsiKey,
                              size_t modelSize = kMaxNoScsiKey);

} // namespace tavstrg

// SPDX-License-Identifier: Apache-2.0
// "options.inf": what an administrator switches on beyond the base system. Without the file nothing is on.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>

namespace tavstrg {

constexpr char kOptionsInf[] = "options.inf"; // in the data directory, beside "storage.inf"
constexpr size_t kMaxOptionsSize = 65536;     // bytes; a larger file is refused

enum class Option : uint8_t {
    kernelRelease,
    diskIdentity,
    diskNames,
    smartState,
    sleepingDisks,
    uevents,
    sideBySide,
    diskAlerts,
    fairRequests,
    cleanText,
    staleSegments,
    firstDevices,
    everyDisk,
};

struct OptionName {
    std::string_view line; // as it stands in the file
    Option option;
};
constexpr OptionName kOptionNames[] = {
    {"kernel-release", Option::kernelRelease}, {"disk-identity", Option::diskIdentity},
    {"disk-names", Option::diskNames},         {"smart-state", Option::smartState},
    {"sleeping-disks", Option::sleepingDisks}, {"uevents", Option::uevents},
    {"side-by-side", Option::sideBySide},      {"disk-alerts", Option::diskAlerts},
    {"fair-requests", Option::fairRequests},   {"clean-text", Option::cleanText},
    {"stale-segments", Option::staleSegments}, {"first-devices", Option::firstDevices},
    {"every-disk", Option::everyDisk},
};
constexpr std::string_view kAllOptions = "all"; // a line that switches everything on

// Which options are on.
struct Options {
    uint32_t bits = 0; // bit n: the option whose value is n

    constexpr bool has(Option option) const { return (bits >> static_cast<unsigned>(option) & 1U) != 0; }
    constexpr void add(Option option) { bits |= 1U << static_cast<unsigned>(option); }
    bool operator==(const Options &) const = default;
};

// The names in the text of an options file, line by line. A name ends at a blank or at the "#" that begins a comment;
// a byte order mark in front of the text is skipped, and the text ends at its first NUL.
class OptionLines {
public:
    explicit OptionLines(std::string_view text);
    // The next line that has a name; false at the end. Lines are numbered from 1.
    bool next();
    std::string_view name() const { return name_; }
    int line() const { return line_; }

private:
    std::string_view rest_;
    std::string_view name_;
    int line_ = 0;
};

// What a name switches on: nothing for a name that is not known.
std::optional<Options> optionsOfName(std::string_view name);

// The options that a text switches on.
Options parseOptions(std::string_view text);

// Reads the file below the agent's root and makes it what currentOptions gives. Nothing is on where there is no file.
// One that cannot be read leaves the options as they were. What is wrong with the file is traced at level 3, once.
Options takeOptions();

// Whether the file has an option at this moment; where it cannot be read, whether the option was on when it was read
// last. Changes and traces nothing. For what needs no collection.
bool isInOptionsFile(Option option);

// The options that were read last.
Options currentOptions();

// Whether an option may be on: it was when the options were read last, or they were not read yet.
bool mayBeOn(Option option);

} // namespace tavstrg

// SPDX-License-Identifier: Apache-2.0
#include "devcmd/kernel/kernel_version.h"
#include "runtime/trace.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <compare>
#include <cstring>
#include <limits>
#include <string_view>

using namespace tavstrg;

namespace {

constexpr size_t kLongestVersion = 255;

struct Release {
    std::array<int, 3> numbers{}; // major, minor, patch; what is missing is 0
    auto operator<=>(const Release &) const = default;
};

constexpr bool isDigit(char c)
{
    return c >= '0' && c <= '9';
}

bool hasValidLength(const char *version)
{
    const size_t length = ::strnlen(version, kLongestVersion + 1);
    return length > 0 && length <= kLongestVersion;
}

// The part of a release that is compared: up to its first '-'.
std::string_view numbersOf(std::string_view version)
{
    return version.substr(0, version.find('-'));
}

// Deliberate: a release such as 3.10.0+ cannot be compared.
bool isNumeric(std::string_view text)
{
    return std::all_of(text.begin(), text.end(), [](char c) { return isDigit(c) || c == '.'; });
}

// Reads up to three numbers with dots between them, as "%d.%d.%d" does; a number that no int holds is the largest one.
int readNumbers(std::string_view text, Release &release)
{
    int fields = 0;
    for (int &number : release.numbers) {
        const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
        if (error == std::errc::invalid_argument) {
            break;
        }
        if (error == std::errc::result_out_of_range) {
            number = std::numeric_limits<int>::max();
        }
        ++fields;
        text.remove_prefix(static_cast<size_t>(end - text.data()));
        if (!text.starts_with('.')) {
            break;
        }
        text.remove_prefix(1);
    }
    return fields;
}

} // namespace

int CmpVersion(const char *version1, const char *version2)
{
    const TraceScope scope;
    TRACE(kDetail, "_IN_");
    if (version1 == nullptr || version2 == nullptr) {
        return TRACED(-ENOENT, kFailure, "_OUT_ version is NULL");
    }
    if (!hasValidLength(version1) || !hasValidLength(version2)) {
        return TRACED(-ENOENT, kFailure, "_OUT_ Length of version is invalid!");
    }
    if (!isDigit(version1[0])) {
        return TRACED(-ENOENT, kFailure, "_OUT_ version1[0] is not a number!");
    }
    if (!isDigit(version2[0])) {
        return TRACED(-ENOENT, kFailure, "_OUT_ version2[0] is not a number!");
    }
    const std::array<std::string_view, 2> texts{numbersOf(version1), numbersOf(version2)};
    std::array<Release, 2> releases;
    for (size_t i = 0; i < texts.size(); ++i) {
        if (!isNumeric(texts[i])) {
            return TRACED(-ENOENT, kFailure, "_OUT_ version[%d] is invalid!", static_cast<int>(i));
        }
        // Not reached while the checks above ask for a digit in front.
        if (readNumbers(texts[i], releases[i]) == 0) {
            return TRACED(-ENOENT, kFailure, "_OUT_ sscanf() failed!");
        }
    }
    const auto order = releases[0] <=> releases[1];
    if (order > 0) {
        return TRACED(1, kDetail, "_OUT_ (1)");
    }
    if (order < 0) {
        return TRACED(-1, kDetail, "_OUT_ (-1)");
    }
    return TRACED(0, kDetail, "_OUT_ (0)");
}

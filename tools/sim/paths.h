// SPDX-License-Identifier: Apache-2.0
// Which paths belong to the machine.
#pragma once

#include <climits>
#include <compare>
#include <cstddef>
#include <string>
#include <string_view>

namespace sim {

inline constexpr std::string_view kAgentRoot = "/opt/qlm/tavkit_sa";
inline constexpr std::string_view kConfigurationRoot = "/etc/tavkit";

// The path without "//", "/./" and "/../", resolved by its text alone. Of an absolute path only.
std::string plainPath(std::string_view path);

// Whether a plain path belongs to the machine: it lies under one of the roots and is none of what a process needs of
// the real system (its own /proc entries, the null device and the like).
bool isMachinePath(std::string_view plain);

// Whether a text can be the name of one file: not empty, "." or "..", without '/' and NUL bytes, not longer than
// NAME_MAX.
bool isFileName(std::string_view text);

// A path of the simulated tree. Every path that is built from a description is built by this class, name by name, so
// that no text of a description leads out of the machine's directory.
class TreePath {
public:
    // Throws std::invalid_argument, saying why, unless the text is an absolute path of the machine without "." and
    // "..".
    explicit TreePath(std::string_view text);

    // The entry of that name in this directory. Throws std::invalid_argument unless the text is a file name.
    TreePath operator/(std::string_view name) const;

    const std::string &text() const { return text_; }
    std::string_view name() const { return std::string_view(text_).substr(text_.rfind('/') + 1); }
    // This path as a symbolic link at another path gives it: "../devices/a" for a link /sys/bus/b to /sys/devices/a.
    std::string relativeTo(const TreePath &link) const;

    auto operator<=>(const TreePath &) const = default;

private:
    TreePath() = default;
    void append(std::string_view name);

    std::string text_;
};

// A path as the C library is to see it.
class Translated {
public:
    // Longer than a path can be: with the machine's directory before it, the kernel still says that it is too long.
    static constexpr size_t kLongest = PATH_MAX + 512;

    // Where the machine of the process has the path; the path itself when there is no machine, when it is relative or
    // not the machine's, or when the thread works for the simulated machine. errno is kept.
    explicit Translated(const char *path);
    const char *c_str() const { return result_; }
    bool isMachines() const { return machines_; }

private:
    const char *result_;
    bool machines_ = false;
    char buffer_[kLongest];
};

// Takes the machine's directory off the front of a path that lies in it; the text's length afterwards.
size_t withoutRoot(char *text, size_t length);

} // namespace sim

// SPDX-License-Identifier: Apache-2.0
// Paths of the simulated machine.
#pragma once

#include <climits>
#include <compare>
#include <cstddef>
#include <string>
#include <string_view>

namespace sim {

inline constexpr std::string_view kAgentRoot = "/opt/qlm/tavkit_sa";
inline constexpr std::string_view kConfigurationRoot = "/etc/tavkit";

// An absolute path without "//", "/./" and "/../", resolved by its text alone.
std::string plainPath(std::string_view path);

// Whether a plain path belongs to the machine: it is under one of the roots and not one of the real paths that a
// process needs (its own /proc entries, the null device and the like).
bool isMachinePath(std::string_view plain);

// Whether a text can be the name of a file: not empty, "." or "..", without '/' and NUL bytes, at most NAME_MAX bytes.
bool isFileName(std::string_view text);

// A path of the simulated tree. All paths that are built from a description are built by this class, name by name, so
// that no text of a description can lead out of the machine's directory.
class TreePath {
public:
    // Throws std::invalid_argument with a reason unless the text is an absolute path of the machine without "." and
    // "..".
    explicit TreePath(std::string_view text);

    // The entry of this directory with that name. Throws std::invalid_argument if it is not a file name.
    TreePath operator/(std::string_view name) const;

    const std::string &text() const { return text_; }
    std::string_view name() const { return std::string_view(text_).substr(text_.rfind('/') + 1); }
    // The target of a symbolic link to this path: "../devices/a" for a link /sys/bus/b to /sys/devices/a.
    std::string relativeTo(const TreePath &link) const;

    auto operator<=>(const TreePath &) const = default;

private:
    TreePath() = default;
    void append(std::string_view name);

    std::string text_;
};

// A path as it is passed on to the C library.
class Translated {
public:
    // Longer than PATH_MAX: the kernel rejects a path that is too long also with the machine's directory before it.
    static constexpr size_t kLongest = PATH_MAX + 512;

    // The real path of a path of the machine. The path itself if there is no machine, if it is relative or not the
    // machine's, or if the thread works for the simulated machine. errno is unchanged.
    explicit Translated(const char *path);
    const char *c_str() const { return result_; }
    bool isInMachine() const { return inMachine_; }

private:
    const char *result_;
    bool inMachine_ = false;
    char buffer_[kLongest];
};

// Removes the machine's directory from the front of a path. Returns the new length of the text.
size_t withoutRoot(char *text, size_t length);

} // namespace sim

// SPDX-License-Identifier: Apache-2.0
// Which paths belong to the machine.
#pragma once

#include <climits>
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

// SPDX-License-Identifier: Apache-2.0
// Bounded reading of attributes of sysfs, relative to a directory, which is looked up once.
#pragma once

#include "runtime/holders.h"

#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

namespace tavstrg::disks {

class AttributeDirectory {
public:
    // A directory by its path, or by a path below another one. One that cannot be opened has no attributes.
    explicit AttributeDirectory(const char *path);
    AttributeDirectory(const AttributeDirectory &above, const char *path);
    bool exists() const { return static_cast<bool>(directory_); }
    int error() const { return error_; } // errno value of a directory that could not be opened, else 0

    // The beginning of an attribute, as much as the buffer holds; empty if it cannot be read.
    std::string_view read(const char *name, std::span<char> buffer) const;
    // The target of a symbolic link; empty if there is none, or one that does not fit.
    std::string_view link(const char *name, std::span<char> buffer) const;
    // The number at the beginning of an attribute; false without one.
    bool number(const char *name, uint64_t &value) const;

private:
    FileDesc directory_;
    int error_;
};

} // namespace tavstrg::disks

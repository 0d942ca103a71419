// SPDX-License-Identifier: Apache-2.0
// The key files of the segments in the agent's work directory.
#pragma once

#include "runtime/holders.h"

#include <climits>
#include <string_view>
#include <sys/types.h>

namespace tavstrg {

constexpr int kProjectId = 69;               // second half of the key, see ftok(3)
constexpr mode_t kSegmentPermissions = 0600; // of segments and key files

// The key files with one base, "<base><class>", and the retired ones, "<base><class>.bak.<number>", in the order of the
// directory.
class KeyFiles {
public:
    explicit KeyFiles(const char *base);
    // The next one; false at the end.
    bool next();
    const char *path() const { return path_; }
    int classId() const { return classId_; }
    bool retired() const { return retired_; }

private:
    bool take(std::string_view name);

    std::string_view base_; // of the names
    char directory_[PATH_MAX];
    OpenDirectory entries_;
    char path_[PATH_MAX + NAME_MAX + 2] = {};
    int classId_ = 0;
    bool retired_ = false;
};

} // namespace tavstrg

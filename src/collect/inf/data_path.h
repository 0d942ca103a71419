// SPDX-License-Identifier: Apache-2.0
// Where the administrator's files of the inventory are.
#pragma once

#include "runtime/conf_file.h"
#include "runtime/field_text.h"

#include <cstddef>
#include <cstdio>

namespace tavstrg {

constexpr int kMaxRootPath = 512;                   // characters
constexpr size_t kDataPathSize = kMaxRootPath + 32; // bytes of a path below the root

// Path of a file in the data directory under the agent's root, under the default one if the agent configures none.
inline void makeDataPath(char (&path)[kDataPathSize], const char *fileName)
{
    char root[kMaxRootPath + 1] = {};
    if (get_TavRootPath(root, kMaxRootPath) < 1) {
        copyText(root, kDefaultRoot);
    }
    std::snprintf(path, sizeof path, "%s/data/%s", root, fileName);
}

} // namespace tavstrg

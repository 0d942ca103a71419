// SPDX-License-Identifier: Apache-2.0
// Words and variables as exec and posix_spawn take them.
#pragma once

#include <string>
#include <vector>

namespace tool {

// Ends in a null pointer. The pointers are valid as long as the texts are unchanged.
inline std::vector<char *> pointersTo(const std::vector<std::string> &texts)
{
    std::vector<char *> pointers;
    for (const std::string &text : texts) {
        pointers.push_back(const_cast<char *>(text.c_str()));
    }
    pointers.push_back(nullptr);
    return pointers;
}

} // namespace tool

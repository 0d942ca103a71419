// SPDX-License-Identifier: Apache-2.0
// Discovery lists and their texts, for the targets that have the provider build one.
#pragma once

#include "fuzz/fuzz.h"

#include <string_view>

namespace fuzz {

// Length of a list, after each node was looked at.
template <class Node, class Look> int lengthOf(const Node *list, Look look)
{
    int length = 0;
    for (const Node *node = list; node != nullptr; node = node->next) {
        look(*node, length++);
    }
    return length;
}

inline size_t linesIn(std::string_view text)
{
    size_t lines = 1;
    for (const char c : text) {
        lines += c == '\n' ? 1 : 0;
    }
    return lines;
}

} // namespace fuzz

// SPDX-License-Identifier: Apache-2.0
// Trimming of texts from devices and administrator files.
#pragma once

#include <cstddef>
#include <string_view>

namespace tavstrg {

constexpr size_t kDelSpaceMax = 256; // characters that del_space handles; what is longer is cut to it

// A text without leading blanks, newlines and tabs and without trailing blanks, newlines, carriage returns and tabs, as
// del_space leaves one.
std::string_view withoutSpace(std::string_view text);

} // namespace tavstrg

// Trims in place: leading blanks, newlines and tabs; trailing blanks, newlines, carriage returns and tabs. Deliberate:
// a leading carriage return is kept while a trailing one is removed.
void del_space(char *text);

// Trimming of texts from devices and administrator files.
#pragma once

#include <cstddef>

constexpr size_t kDelSpaceMax = 256; // characters that del_space handles; what is longer is cut to it

// Trims in place: leading blanks, newlines and tabs; trailing blanks, newlines, carriage returns and tabs. Deliberate:
// a leading carriage return is kept while a trailing one is removed.
void del_space(char *text);

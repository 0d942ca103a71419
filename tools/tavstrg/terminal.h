// SPDX-License-Identifier: Apache-2.0
// How wide a terminal is.
#pragma once

#include <cstddef>

namespace tool {

// Columns at which lines are broken; 0: they are not, what is no terminal gets whole lines. reported is what the kernel
// says of the terminal, 0 where it does not know (a serial line); then the variable COLUMNS counts, null when not set,
// and without a number in it 80.
size_t lineWidth(bool terminal, unsigned reported, const char *columns);

// The same, asked of a descriptor now: a terminal's window may be resized at any time.
size_t widthOf(int descriptor);

} // namespace tool

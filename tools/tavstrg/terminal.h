// SPDX-License-Identifier: Apache-2.0
// How wide a terminal is.
#pragma once

#include <cstddef>

namespace tool {

// Columns at which lines are broken; 0, for anything but a terminal: they are not. reported is the kernel's figure, 0
// if it has none (a serial line); then the variable COLUMNS (null when not set) is used, and 80 if it is no number.
size_t lineWidth(bool terminal, unsigned reported, const char *columns);

// The same for a descriptor at this moment: a terminal's window may be resized at any time.
size_t widthOf(int descriptor);

} // namespace tool

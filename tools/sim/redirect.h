// SPDX-License-Identifier: Apache-2.0
// Paths that lead elsewhere whether the process sees a simulated machine or the real one.
#pragma once

#include <cstddef>

namespace sim {

// Writes where a path leads into buffer; false, with the buffer as it was, if no redirection applies or the result does
// not fit.
bool redirected(const char *path, char *buffer, size_t size);

} // namespace sim

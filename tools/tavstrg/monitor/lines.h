// SPDX-License-Identifier: Apache-2.0
// The file of JSON lines, one for each event. It grows to its limit; then it is renamed to FILE.1, which replaces an
// earlier one, and begun again. So both together have at most twice the limit.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace tool::monitor {

// Appends a line, which ends in a newline. repeated: it may be there already, whole or in part; then it is not added a
// second time. What a kill left of another line is removed. Returns 0, or an errno, with the file as it was. Anything
// but a regular file is EINVAL, and so is a file of another user or with another name.
int appendLine(const std::string &path, std::string_view line, bool repeated, size_t limit);

} // namespace tool::monitor

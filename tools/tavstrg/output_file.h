// SPDX-License-Identifier: Apache-2.0
// A file that is replaced in one step.
#pragma once

#include <sys/types.h>

#include <string>

namespace tool {

// Throws Failure unless the path is that of a regular file or of nothing: a device, a FIFO, a directory or a symbolic
// link is never replaced.
void checkReplaceable(const std::string &path);

// Writes a file under a temporary name beside it and renames it, so that a reader finds the old or the new content
// whole. mode: by default readable by all. Throws Failure; the old file is then unchanged and no temporary file is
// left.
constexpr mode_t kReadableByAll = 0644; // the node exporter seldom runs as root
void writeWhole(const std::string &path, const std::string &content, mode_t mode = kReadableByAll);

} // namespace tool

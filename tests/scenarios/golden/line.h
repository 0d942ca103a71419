// SPDX-License-Identifier: Apache-2.0
// Where the agent's libraries of the golden traces write: one line a call, in the order of the calls, to the file that
// TAV_GOLDEN_FILE names. Each line begins with the calling thread's identifier and a tab.
#pragma once

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <string>
#include <unistd.h>

namespace golden {

inline void writeLine(std::string text)
{
    const char *const path = std::getenv("TAV_GOLDEN_FILE");
    if (path == nullptr) {
        return;
    }
    for (size_t at = 0; (at = text.find('\n', at)) != std::string::npos;) {
        text.replace(at, 1, "\\n"); // a text of several lines stays in one
    }
    const std::string line = std::to_string(::gettid()) + "\t" + text + "\n";
    const int descriptor = ::open(path, O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0600);
    if (descriptor < 0 || ::write(descriptor, line.data(), line.size()) != static_cast<ssize_t>(line.size())) {
        std::abort(); // a golden trace with a gap proves nothing
    }
    ::close(descriptor);
}

} // namespace golden

// SPDX-License-Identifier: Apache-2.0
// Reading and writing all of something, where a call may do less than it was asked for.
#pragma once

#include <cerrno>
#include <cstddef>
#include <span>
#include <string_view>
#include <unistd.h>

namespace tavstrg {

// Reads until the buffer is full or the file ends: the bytes read, or -1 with errno.
inline ssize_t readWhole(int fd, std::span<char> buffer)
{
    size_t total = 0;
    while (total < buffer.size()) {
        const ssize_t got = ::read(fd, buffer.data() + total, buffer.size() - total);
        if (got < 0 && errno == EINTR) {
            continue;
        }
        if (got < 0) {
            return -1;
        }
        if (got == 0) {
            break;
        }
        total += static_cast<size_t>(got);
    }
    return static_cast<ssize_t>(total);
}

// Writes all of a text. Returns 0 or an errno.
inline int writeWhole(int fd, std::string_view text)
{
    while (!text.empty()) {
        const ssize_t put = ::write(fd, text.data(), text.size());
        if (put < 0 && errno == EINTR) {
            continue;
        }
        if (put <= 0) {
            return put < 0 ? errno : ENOSPC;
        }
        text.remove_prefix(static_cast<size_t>(put));
    }
    return 0;
}

} // namespace tavstrg

// SPDX-License-Identifier: Apache-2.0
// Bounded reading of small text files (attributes of sysfs, files of procfs, the administrator's files) and of what is
// beside them in their directories.
#pragma once

#include "runtime/holders.h"

#include <cstddef>
#include <span>
#include <string_view>

namespace tavstrg {

// A regular file that is open for reading. A directory, a FIFO or a device in its place is a failed open, never a hang.
class TextFile {
public:
    // Below /sys, where nothing can take a file's place, the check for a regular file is left to isRegular.
    explicit TextFile(const char *path);
    bool isRegular() const;
    // 0 when open, else the errno of what failed: ENOENT where there is no such file.
    int error() const { return error_; }
    // Reads until the buffer is full or the file ends: the bytes read, or -1 with errno.
    ssize_t read(std::span<char> buffer) const;
    // The same, but stops as soon as a newline is among what was read.
    ssize_t readLine(std::span<char> buffer) const;

private:
    FileDesc file_;
    int error_;
};

// Lines of an open file, each with its newline. One of more than kMaxLine characters comes in pieces of that size.
class TextLines {
public:
    static constexpr size_t kMaxLine = 1023;

    // Of the file at most so many bytes are read.
    TextLines(const TextFile &file, size_t maxBytes) : file_(file), left_(maxBytes) {}
    // Next line, valid until the next call; false at the end of the file, at the bound and on an error.
    bool next(std::string_view &line);
    bool failed() const { return failed_; }
    bool isAtBound() const { return left_ == 0; }

private:
    const TextFile &file_;
    size_t left_;
    char buffer_[kMaxLine];
    size_t begin_ = 0;
    size_t end_ = 0;
    bool failed_ = false;
};

constexpr int kDotEntries = 2; // "." and "..", the first two of a sorted listing

// Whether an entry of a directory is a directory, also behind a symbolic link.
bool isDirectory(const char *directory, const char *entry);

enum class ReadResult { done, absent, notOpened, notRead };

// First line of a file into the buffer, cut to what it holds; text may run on past the newline. No terminator.
ReadResult readFirstLine(const char *path, std::span<char> buffer, std::string_view &text);
// The beginning of a file, as much as the buffer holds.
ReadResult readBeginning(const char *path, std::span<char> buffer, std::string_view &text);

} // namespace tavstrg

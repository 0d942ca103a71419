// SPDX-License-Identifier: Apache-2.0
#include "collect/base/text_file.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>

using namespace tavstrg;

namespace {

// O_NONBLOCK: the open of a FIFO must not wait for a writer.
int openForReading(const char *path)
{
    return ::open(path, O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
}

int openErrorOf(const char *path, int fd)
{
    if (fd < 0) {
        return errno;
    }
    if (std::string_view(path).starts_with("/sys/")) {
        return 0;
    }
    struct stat info = {};
    if (::fstat(fd, &info) != 0) {
        return errno;
    }
    return S_ISREG(info.st_mode) ? 0 : EINVAL;
}

ssize_t readSome(int fd, std::span<char> buffer)
{
    ssize_t got = 0;
    do {
        got = ::read(fd, buffer.data(), buffer.size());
    } while (got < 0 && errno == EINTR);
    return got;
}

// Reads until the buffer is full, the file ends or, where asked for, a newline has come.
ssize_t readUntil(int fd, std::span<char> buffer, bool stopAtNewline)
{
    size_t total = 0;
    while (total < buffer.size()) {
        const ssize_t got = readSome(fd, buffer.subspan(total));
        if (got < 0) {
            return -1;
        }
        if (got == 0) {
            break;
        }
        const bool newline = std::memchr(buffer.data() + total, '\n', static_cast<size_t>(got)) != nullptr;
        total += static_cast<size_t>(got);
        if (newline && stopAtNewline) {
            break;
        }
    }
    return static_cast<ssize_t>(total);
}

ReadResult readInto(const char *path, std::span<char> buffer, std::string_view &text, bool stopAtNewline)
{
    text = {};
    const TextFile file(path);
    if (file.error() != 0) {
        return file.error() == ENOENT ? ReadResult::absent : ReadResult::notOpened;
    }
    const ssize_t got = stopAtNewline ? file.readLine(buffer) : file.read(buffer);
    if (got <= 0 && !file.isRegular()) {
        return ReadResult::notOpened;
    }
    if (got < 0) {
        return ReadResult::notRead;
    }
    text = {buffer.data(), static_cast<size_t>(got)};
    return ReadResult::done;
}

} // namespace

TextFile::TextFile(const char *path) : file_(openForReading(path)), error_(openErrorOf(path, file_.get())) {}

bool TextFile::isRegular() const
{
    struct stat info = {};
    return ::fstat(file_.get(), &info) == 0 && S_ISREG(info.st_mode);
}

ssize_t TextFile::read(std::span<char> buffer) const
{
    return readUntil(file_.get(), buffer, false);
}

ssize_t TextFile::readLine(std::span<char> buffer) const
{
    return readUntil(file_.get(), buffer, true);
}

bool TextLines::next(std::string_view &line)
{
    std::string_view held(buffer_ + begin_, end_ - begin_);
    if (held.find('\n') == std::string_view::npos) {
        std::memmove(buffer_, held.data(), held.size());
        const size_t room = std::min(sizeof buffer_ - held.size(), left_);
        const ssize_t got = file_.readLine(std::span(buffer_).subspan(held.size(), room));
        failed_ = got < 0;
        left_ -= failed_ ? 0 : static_cast<size_t>(got);
        begin_ = 0;
        end_ = failed_ ? 0 : held.size() + static_cast<size_t>(got);
        held = {buffer_, end_};
    }
    const size_t newline = held.find('\n');
    line = held.substr(0, newline == std::string_view::npos ? held.size() : newline + 1);
    begin_ += line.size();
    return !line.empty();
}

bool tavstrg::isDirectory(const char *directory, const char *entry)
{
    char path[PATH_MAX];
    struct stat info = {};
    const int length = std::snprintf(path, sizeof path, "%s/%s", directory, entry);
    return length < static_cast<int>(sizeof path) && ::stat(path, &info) == 0 && S_ISDIR(info.st_mode);
}

ReadResult tavstrg::readFirstLine(const char *path, std::span<char> buffer, std::string_view &text)
{
    return readInto(path, buffer, text, true);
}

ReadResult tavstrg::readBeginning(const char *path, std::span<char> buffer, std::string_view &text)
{
    return readInto(path, buffer, text, false);
}

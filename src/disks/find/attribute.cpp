// SPDX-License-Identifier: Apache-2.0
#include "disks/find/attribute.h"

#include <cerrno>
#include <charconv>
#include <fcntl.h>
#include <unistd.h>

namespace tavstrg::disks {
namespace {

// O_PATH: for looking up names below it; nothing of the directory is read.
constexpr int kDirectory = O_PATH | O_DIRECTORY | O_CLOEXEC;
// O_NONBLOCK: something else in an attribute's place must not make the open wait.
constexpr int kFile = O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC;

} // namespace

AttributeDirectory::AttributeDirectory(const char *path)
    : directory_(::open(path, kDirectory)), error_(directory_ ? 0 : errno)
{
}

AttributeDirectory::AttributeDirectory(const AttributeDirectory &above, const char *path)
    : directory_(above.exists() ? ::openat(above.directory_.get(), path, kDirectory) : -1),
      error_(directory_ ? 0 : errno)
{
}

std::string_view AttributeDirectory::read(const char *name, std::span<char> buffer) const
{
    const FileDesc file(exists() ? ::openat(directory_.get(), name, kFile) : -1);
    size_t length = 0;
    while (file && length < buffer.size()) {
        const ssize_t got = ::read(file.get(), buffer.data() + length, buffer.size() - length);
        if (got < 0 && errno == EINTR) {
            continue;
        }
        if (got <= 0) {
            break;
        }
        length += static_cast<size_t>(got);
        // An attribute comes whole in one read, unless it is longer than a page.
        if (length < buffer.size() && length % 4096 != 0) {
            break;
        }
    }
    return {buffer.data(), length};
}

std::string_view AttributeDirectory::link(const char *name, std::span<char> buffer) const
{
    const ssize_t length = exists() ? ::readlinkat(directory_.get(), name, buffer.data(), buffer.size()) : -1;
    if (length <= 0 || static_cast<size_t>(length) == buffer.size()) {
        return {};
    }
    return {buffer.data(), static_cast<size_t>(length)};
}

bool AttributeDirectory::number(const char *name, uint64_t &value) const
{
    char buffer[32];
    const std::string_view text = read(name, buffer);
    uint64_t parsed = 0;
    if (std::from_chars(text.data(), text.data() + text.size(), parsed).ec != std::errc()) {
        return false;
    }
    value = parsed;
    return true;
}

} // namespace tavstrg::disks

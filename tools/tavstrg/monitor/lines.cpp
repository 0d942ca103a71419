// SPDX-License-Identifier: Apache-2.0
#include "tavstrg/monitor/lines.h"

#include "runtime/holders.h"
#include "runtime/whole.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>

namespace tool::monitor {
namespace {

using tavstrg::FileDesc;

constexpr size_t kTailBytes = 65536; // in which a repeated line is looked for: more than the lines of one event

// The end of a file, from the begin of a line if it is longer.
int readTail(int file, off_t size, std::string &tail)
{
    const off_t begin = std::max<off_t>(0, size - static_cast<off_t>(kTailBytes));
    tail.resize(static_cast<size_t>(size - begin));
    const ssize_t got = lseek(file, begin, SEEK_SET) < 0 ? -1 : tavstrg::readWhole(file, tail);
    if (got < 0) {
        return errno;
    }
    tail.resize(static_cast<size_t>(got));
    return 0;
}

bool hasLine(std::string_view text, std::string_view line)
{
    for (size_t at = text.find(line); at != std::string_view::npos; at = text.find(line, at + 1)) {
        if (at == 0 || text[at - 1] == '\n') {
            return true;
        }
    }
    return false;
}

// What follows the last line end: what a kill left of a line.
std::string_view remnantOf(std::string_view tail)
{
    return tail.substr(tail.rfind('\n') + 1); // npos + 1 is 0
}

// A file that ends otherwise is none of ours, and is not to be cut.
bool isOurs(std::string_view remnant)
{
    return remnant.empty() || (remnant.starts_with('{') && remnant.size() < kTailBytes);
}

} // namespace

int appendLine(const std::string &path, std::string_view line, bool repeated, size_t limit)
{
    constexpr int kFlags = O_RDWR | O_CREAT | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC;
    const FileDesc file(open(path.c_str(), kFlags, 0640));
    struct stat info = {};
    if (!file || fstat(file.get(), &info) != 0) {
        return errno;
    }
    if (!S_ISREG(info.st_mode) || info.st_nlink != 1 || info.st_uid != geteuid()) {
        return EINVAL;
    }
    std::string tail;
    if (const int error = readTail(file.get(), info.st_size, tail); error != 0) {
        return error;
    }
    if (repeated && hasLine(tail, line)) {
        return 0;
    }
    if (!isOurs(remnantOf(tail))) {
        return EINVAL;
    }
    const off_t size = info.st_size - static_cast<off_t>(remnantOf(tail).size());
    if (size > 0 && static_cast<size_t>(size) + line.size() > limit) {
        const std::string old = path + ".1";
        return std::rename(path.c_str(), old.c_str()) != 0 ? errno : appendLine(path, line, false, limit);
    }
    if (ftruncate(file.get(), size) != 0 || lseek(file.get(), size, SEEK_SET) < 0) {
        return errno;
    }
    const int error = tavstrg::writeWhole(file.get(), line);
    if (error != 0) { // a full disk
        static_cast<void>(ftruncate(file.get(), size) != 0);
    }
    return error;
}

} // namespace tool::monitor

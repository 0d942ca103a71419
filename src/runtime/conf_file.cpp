// SPDX-License-Identifier: Apache-2.0
#include "runtime/conf_file.h"

#include "runtime/holders.h"
#include "runtime/trace.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <string_view>
#include <strings.h>
#include <sys/stat.h>

using namespace tavstrg;

namespace {

constexpr char kConfigurationFile[] = "/etc/tavkit/tavkit.conf";
constexpr int kDefaultRootLength = sizeof kDefaultRoot - 1;
static_assert(kDefaultRootLength == 18);

// Copies text with its terminator when size, which does not count the terminator, is at least its length.
bool copyIfFits(char *field, int size, std::string_view text)
{
    if (size < 0 || static_cast<size_t>(size) < text.size()) {
        return false;
    }
    std::memcpy(field, text.data(), text.size());
    field[text.size()] = '\0';
    return true;
}

// A FIFO or a device in place of the file must neither block the provider nor be read.
bool isRegular(int fd)
{
    struct stat about = {};
    return ::fstat(fd, &about) == 0 && S_ISREG(about.st_mode);
}

// Feeds the file to the search until the key is found: true, or false when the file is larger than what is read. An
// error while reading counts as the file's end. A token that the bound cuts counts for nothing.
bool searchFile(int fd, ConfSearch &search)
{
    char block[4096];
    static_assert(kConfBytesMax % sizeof block == 0);
    size_t read = 0;
    while (!search.found()) {
        const ssize_t got = ::read(fd, block, std::min(sizeof block, kConfBytesMax + 1 - read));
        if (got < 0 && errno == EINTR) {
            continue;
        }
        if (got <= 0) {
            search.finish();
            return true;
        }
        read += static_cast<size_t>(got);
        if (read > kConfBytesMax) {
            return false;
        }
        search.feed({block, static_cast<size_t>(got)});
    }
    return true;
}

// A descriptor, which the caller closes, or -1.
int openConfiguration()
{
    FileDesc file(::open(kConfigurationFile, O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
    return file && isRegular(file.get()) ? file.handOver() : -1;
}

} // namespace

int get_TavEnv(const char *name, char *value, int size)
{
    const TraceScope scope;
    TRACE(kDetail, "_IN_ env=[%s] EnvString=[%p] size=[%d]", name != nullptr ? name : "NULL",
          static_cast<const void *>(value), size);
    if (value == nullptr) {
        return TRACED(0, kFailure, "_OUT_ EnvString is NULL");
    }
    const FileDesc file(openConfiguration());
    if (!file) {
        // Deliberate: the default root is the answer to every question.
        if (!copyIfFits(value, size, kDefaultRoot)) {
            return TRACED(-kDefaultRootLength, kDetail, "_OUT_ size=[%d]", size);
        }
        return TRACED(kDefaultRootLength, kDetail, "_OUT_ EnvString=[%s]", value);
    }
    ConfSearch search(name);
    if (!searchFile(file.get(), search)) {
        TRACE(kFailure, "%s is larger than %d bytes, the rest is not read", kConfigurationFile,
              static_cast<int>(kConfBytesMax));
    }
    if (!search.found()) {
        return TRACED(0, kDetail, "_OUT_");
    }
    const std::string_view text = search.value();
    const int length = static_cast<int>(text.size());
    if (!copyIfFits(value, size, text)) {
        return TRACED(-length, kDetail, "_OUT_ name=[%s] value=[%s] size=[%d]", name, text.data(), size);
    }
    return TRACED(length, kDetail, "_OUT_ EnvString=[%s]", value);
}

int get_TavRootPath(char *path, int size)
{
    const TraceScope scope;
    TRACE(kDetail, "_IN_ lpPath=[%p] size=[%d]", static_cast<const void *>(path), size);
    if (path == nullptr) {
        return TRACED(0, kFailure, "_OUT_ lpPath is NULL");
    }
    char root[kConfTokenMax + 2];
    const int length = get_TavEnv("TavDir", root, sizeof root - 1);
    static_assert(sizeof root - 1 == 512);
    if (length < 1) {
        if (!copyIfFits(path, size, kDefaultRoot)) {
            return TRACED(-kDefaultRootLength, kDetail, "_OUT_ size=[%d]", size);
        }
        return TRACED(kDefaultRootLength, kDetail, "_OUT_ lpPath=[%s]", path);
    }
    // Deliberate: one answer for every value that does not fit, unlike the default root's.
    if (!copyIfFits(path, size, {root, static_cast<size_t>(length)})) {
        return TRACED(-1, kDetail, "_OUT_ rootpath=[%s]", root);
    }
    return TRACED(length, kDetail, "_OUT_ lpPath=[%s]", path);
}

void tavstrg::findRootPath(std::span<char> path)
{
    ConfSearch search("TavDir");
    if (const FileDesc file(openConfiguration()); file) {
        static_cast<void>(searchFile(file.get(), search));
    }
    const std::string_view root = search.found() ? search.value() : std::string_view(kDefaultRoot);
    const std::string_view fitting = root.size() < path.size() ? root : std::string_view(kDefaultRoot);
    fitting.copy(path.data(), fitting.size());
    path[fitting.size()] = '\0';
}

void ConfSearch::feed(std::string_view text)
{
    constexpr std::string_view whitespace = " \t\n\v\f\r";
    for (const char c : text) {
        if (found_) {
            return;
        }
        if (whitespace.find(c) != std::string_view::npos) {
            endToken();
            continue;
        }
        (atValue_ ? value_ : key_)[length_++] = c;
        if (length_ == kConfTokenMax) {
            endToken();
        }
    }
}

void ConfSearch::finish()
{
    if (!found_) {
        endToken();
    }
}

void ConfSearch::endToken()
{
    if (length_ == 0) {
        return;
    }
    (atValue_ ? value_ : key_)[length_] = '\0';
    length_ = 0;
    found_ = atValue_ && name_ != nullptr && ::strcasecmp(key_, name_) == 0;
    atValue_ = !atValue_;
}

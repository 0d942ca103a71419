// SPDX-License-Identifier: Apache-2.0
#include "runtime/options.h"

#include "runtime/checksum.h"
#include "runtime/conf_file.h"
#include "runtime/holders.h"
#include "runtime/trace.h"
#include "runtime/whole.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <sys/stat.h>

using namespace tavstrg;

namespace {

std::atomic<uint32_t> g_current = 0;
std::atomic<bool> g_known = false;    // whether they were read in this process
std::atomic<uint64_t> g_reported = 0; // mark of the file, or of the error, that was traced last

constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF"; // UTF-8

// 0 for a regular file of a size that is read, else an errno.
int refusalOf(int fd)
{
    struct stat about = {};
    if (fd < 0 || ::fstat(fd, &about) != 0) {
        return errno;
    }
    if (!S_ISREG(about.st_mode)) {
        return EINVAL;
    }
    return about.st_size > static_cast<off_t>(kMaxOptionsSize) ? EFBIG : 0;
}

bool isNews(uint64_t mark)
{
    return g_reported.exchange(mark) != mark;
}

void traceUnknownNames(std::string_view text)
{
    OptionLines lines(text);
    while (lines.next()) {
        if (!optionsOfName(lines.name())) {
            constexpr size_t kShown = 64;
            TRACE(kFailure, "options.inf line %d: unknown option [%.*s]", lines.line(),
                  static_cast<int>(std::min(lines.name().size(), kShown)), lines.name().data());
        }
    }
}

// Whether what is wrong with the file is traced.
enum class Report { news, nothing };

// The options of an open file, or nothing with errno.
std::optional<Options> readOptions(int fd, Report report)
{
    if (const int error = refusalOf(fd); error != 0) {
        errno = error;
        return std::nullopt;
    }
    const HeapBlock<char> buffer(std::malloc(kMaxOptionsSize)); // not memalloc, which traces
    if (!buffer) {
        return std::nullopt;
    }
    const ssize_t got = readWhole(fd, {buffer.get(), kMaxOptionsSize});
    if (got < 0) {
        return std::nullopt;
    }
    const std::string_view text(buffer.get(), static_cast<size_t>(got));
    if (report == Report::news && isNews(checksumOf(text))) {
        traceUnknownNames(text);
    }
    return parseOptions(text);
}

constexpr size_t kPathRoom = kConfTokenMax + sizeof "/data/" + sizeof kOptionsInf;

// Opens the file: a descriptor, or below 0 with errno.
int openOptions(char (&path)[kPathRoom])
{
    char root[kConfTokenMax + 1];
    findRootPath(root);
    std::snprintf(path, sizeof path, "%s/data/%s", root, kOptionsInf);
    return ::open(path, O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
}

bool isAbsence(int error)
{
    return error == ENOENT || error == ENOTDIR;
}

std::string_view firstWord(std::string_view line)
{
    constexpr std::string_view kBlanks = " \t\r\v\f";
    line.remove_prefix(std::min(line.find_first_not_of(kBlanks), line.size()));
    return line.substr(0, line.find_first_of(" \t\r\v\f#"));
}

} // namespace

OptionLines::OptionLines(std::string_view text) : rest_(text.substr(0, text.find('\0')))
{
    if (rest_.starts_with(kByteOrderMark)) {
        rest_.remove_prefix(kByteOrderMark.size());
    }
}

bool OptionLines::next()
{
    while (!rest_.empty()) {
        const std::string_view line = rest_.substr(0, rest_.find('\n'));
        rest_.remove_prefix(std::min(line.size() + 1, rest_.size()));
        ++line_;
        name_ = firstWord(line);
        if (!name_.empty()) {
            return true;
        }
    }
    return false;
}

std::optional<Options> tavstrg::optionsOfName(std::string_view name)
{
    Options options;
    for (const OptionName &known : kOptionNames) {
        if (name == kAllOptions || name == known.line) {
            options.add(known.option);
        }
    }
    return options.bits == 0 ? std::nullopt : std::optional(options);
}

Options tavstrg::parseOptions(std::string_view text)
{
    Options all;
    OptionLines lines(text);
    while (lines.next()) {
        all.bits |= optionsOfName(lines.name()).value_or(Options{}).bits;
    }
    return all;
}

Options tavstrg::takeOptions()
{
    char path[kPathRoom];
    const FileDesc file(openOptions(path));
    if (!file && isAbsence(errno)) {
        g_current = 0;
        g_reported = 0;
        g_known = true;
        return {};
    }
    if (const std::optional<Options> read = readOptions(file.get(), Report::news)) {
        g_current = read->bits;
        g_known = true;
        return *read;
    }
    if (const int error = errno; isNews(static_cast<uint64_t>(error))) {
        TRACE(kFailure, "%s is not read, the options stay: errno=[%d]", path, error);
    }
    return currentOptions();
}

bool tavstrg::isInOptionsFile(Option option)
{
    char path[kPathRoom];
    const FileDesc file(openOptions(path));
    if (!file && isAbsence(errno)) {
        return false;
    }
    return readOptions(file.get(), Report::nothing).value_or(currentOptions()).has(option);
}

Options tavstrg::currentOptions()
{
    return {g_current.load()};
}

bool tavstrg::mayBeOn(Option option)
{
    return !g_known || currentOptions().has(option);
}

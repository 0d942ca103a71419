// SPDX-License-Identifier: Apache-2.0
#include "agent/line.h"

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <pthread.h>
#include <sys/stat.h>
#include <unistd.h>

Undisturbed::Undisturbed() : errno_(errno), cancelState_(PTHREAD_CANCEL_ENABLE)
{
    pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &cancelState_);
}

Undisturbed::~Undisturbed()
{
    pthread_setcancelstate(cancelState_, nullptr);
    errno = errno_;
}

Line::~Line()
{
    std::free(text_);
}

bool Line::reserve(size_t more)
{
    if (length_ + more < room_) {
        return true;
    }
    const size_t room = 2 * (length_ + more + 1);
    auto *text = static_cast<char *>(std::realloc(text_, room));
    if (text == nullptr) {
        full_ = true;
        return false;
    }
    if (text_ == nullptr) {
        std::memcpy(text, short_, length_);
    }
    text_ = text;
    room_ = room;
    text_[length_] = '\0';
    return true;
}

void Line::add(const char *text, size_t length)
{
    if (reserve(length)) {
        std::memcpy(end(), text, length);
        length_ += length;
        *end() = '\0';
    }
}

void Line::add(const char *text)
{
    if (text != nullptr) {
        add(text, std::strlen(text));
    }
}

void Line::format(const char *format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    formatList(format, arguments);
    va_end(arguments);
}

void Line::formatList(const char *format, va_list arguments)
{
    va_list again;
    va_copy(again, arguments);
    const int wanted = std::vsnprintf(end(), room_ - length_, format, arguments);
    const size_t length = wanted > 0 ? static_cast<size_t>(wanted) : 0;
    *end() = '\0'; // of a part only, if it did not fit
    if (reserve(length)) {
        std::vsnprintf(end(), room_ - length_, format, again);
        length_ += length;
    }
    va_end(again);
}

void Line::keepOneLine()
{
    for (char *at = end() - length_; at != end(); ++at) {
        if (*at == '\n' || *at == '\r') {
            *at = ' ';
        }
    }
}

namespace {

// A link of root (/dev/stderr) or of this process's user; not one that another user put in place of the file.
bool isTrustedLink(const char *path)
{
    struct stat info = {};
    return lstat(path, &info) == 0 && S_ISLNK(info.st_mode) && (info.st_uid == 0 || info.st_uid == geteuid());
}

int openToAppend(const char *path)
{
    constexpr int kFlags = O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC | O_NOCTTY | O_NONBLOCK;
    constexpr mode_t kMode = 0640;
    const int descriptor = open(path, kFlags | O_NOFOLLOW, kMode);
    if (descriptor >= 0 || errno != ELOOP) {
        return descriptor;
    }
    if (isTrustedLink(path)) {
        return open(path, kFlags, kMode);
    }
    errno = ELOOP;
    return -1;
}

int writeLine(int descriptor, const Line &line)
{
    const ssize_t written = write(descriptor, line.text(), line.length());
    if (written < 0) {
        return errno;
    }
    return static_cast<size_t>(written) == line.length() ? 0 : ENOSPC;
}

bool isPrintable(unsigned char byte)
{
    return byte >= 0x20 && byte < 0x7f;
}

// Texts of devices and files are in the line: on a terminal each byte that is not printable ASCII, but the line end,
// becomes \xNN, so that none of them can control it.
int writeEscaped(int descriptor, const Line &line)
{
    Line escaped;
    for (size_t i = 0; i < line.length(); ++i) {
        const auto byte = static_cast<unsigned char>(line.text()[i]);
        const bool lineEnd = byte == '\n' && i + 1 == line.length();
        if (isPrintable(byte) || lineEnd) {
            escaped.add(line.text() + i, 1);
        } else {
            escaped.format("\\x%02x", static_cast<unsigned>(byte));
        }
    }
    return writeLine(descriptor, escaped);
}

} // namespace

int appendLine(const char *path, const Line &line)
{
    const bool standard = std::strcmp(path, "-") == 0;
    const int descriptor = standard ? STDERR_FILENO : openToAppend(path);
    if (descriptor < 0) {
        return errno;
    }
    const int result = isatty(descriptor) == 1 ? writeEscaped(descriptor, line) : writeLine(descriptor, line);
    if (!standard) {
        close(descriptor);
    }
    return result;
}

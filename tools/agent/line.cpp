// SPDX-License-Identifier: Apache-2.0
#include "agent/line.h"

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <pthread.h>

Undisturbed::Undisturbed() : errno_(errno), cancelState_(PTHREAD_CANCEL_ENABLE)
{
    pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &cancelState_);
}

Undisturbed::~Undisturbed()
{
    pthread_setcancelstate(cancelState_, nullptr);
    errno = errno_;
}

namespace {

pthread_mutex_t lock = PTHREAD_MUTEX_INITIALIZER;

void lockForFork()
{
    pthread_mutex_lock(&lock);
}

void unlockAfterFork()
{
    pthread_mutex_unlock(&lock);
}

[[gnu::constructor]] void prepareForFork()
{
    pthread_atfork(lockForFork, unlockAfterFork, unlockAfterFork);
}

} // namespace

Locked::Locked()
{
    pthread_mutex_lock(&lock);
}

Locked::~Locked()
{
    pthread_mutex_unlock(&lock);
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
    const int needed = std::vsnprintf(end(), room_ - length_, format, arguments);
    const size_t length = needed > 0 ? static_cast<size_t>(needed) : 0;
    if (length < room_ - length_) {
        length_ += length;
    } else {
        *end() = '\0'; // drops the part that fits
        if (reserve(length)) {
            std::vsnprintf(end(), room_ - length_, format, again);
            length_ += length;
        }
    }
    *end() = '\0';
    va_end(again);
}

void Line::addTime(const char *format, bool local)
{
    timespec now = {};
    clock_gettime(CLOCK_REALTIME, &now);
    tm time = {};
    char text[32];
    {
        const Locked held; // these take a lock of the C library
        static_cast<void>(local ? localtime_r(&now.tv_sec, &time) : gmtime_r(&now.tv_sec, &time));
        text[std::strftime(text, sizeof text, format, &time)] = '\0';
    }
    this->format("%s.%03ld", text, now.tv_nsec / 1000000);
}

void Line::keepOneLine()
{
    for (char *at = end() - length_; at != end(); ++at) {
        if (*at == '\n' || *at == '\r') {
            *at = ' ';
        }
    }
}

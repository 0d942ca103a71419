// SPDX-License-Identifier: Apache-2.0
#include "agent/line.h"

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
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
    *end() = '\0'; // drops a part that did not fit
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

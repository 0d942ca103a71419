// SPDX-License-Identifier: Apache-2.0
#include "runtime/trace_lines.h"

#include "runtime/trace.h"

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>

using namespace tavstrg;

// One block, with the text behind it. The source line and the function are those of the caller of add.
struct TraceLines::Line {
    std::atomic<Line *> next;
    const char *function; // a literal
    int level;
    int line;

    char *text() { return reinterpret_cast<char *>(this + 1); }
    const char *text() const { return reinterpret_cast<const char *>(this + 1); }
};

void TraceLines::add(int level, int line, const char *format, ...)
{
    char text[1024]; // what is longer is cut: a line has a few names and texts of at most 255 characters
    va_list values;
    va_start(values, format);
    const int length = std::vsnprintf(text, sizeof text, format, values);
    va_end(values);
    // Not from memalloc, which traces itself.
    void *const block = length < 0 ? nullptr : std::malloc(sizeof(Line) + std::strlen(text) + 1);
    if (block == nullptr) {
        ++lost_;
        return;
    }
    Line *const added = new (block) Line{nullptr, TraceScope::current(), level, line};
    std::memcpy(added->text(), text, std::strlen(text) + 1);
    (last_ == nullptr ? first_ : last_->next).store(added, std::memory_order_release);
    last_ = added;
}

void TraceLines::write() const
{
    for (const Line *line = first_.load(std::memory_order_acquire); line != nullptr;
         line = line->next.load(std::memory_order_acquire)) {
        const TraceScope scope(line->function);
        traceLine(line->level, line->line, "%s", line->text());
    }
    if (lost_ != 0) {
        TRACE(kFailure, "%u trace lines are lost, memory is short", lost_.load());
    }
}

void TraceLines::release()
{
    Line *line = first_.exchange(nullptr);
    while (line != nullptr) {
        Line *const next = line->next;
        std::free(line);
        line = next;
    }
    last_ = nullptr;
    lost_ = 0;
}

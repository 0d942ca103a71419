// SPDX-License-Identifier: Apache-2.0
// Trace lines of one thread that are kept instead of written, and written later in one piece.
#pragma once

#include <atomic>

namespace tavstrg {

// All bytes zero: no lines. One thread adds lines; meanwhile another one may write those that are there.
class TraceLines {
public:
    // Adds a line under the name of this thread's trace scope. A line for which memory is short is only counted.
    // The macro TRACE checks the format.
    void add(int level, int line, const char *format, ...);
    // Writes the lines to the trace library, in the order in which they were added.
    void write() const;
    // Frees the lines. No thread may use them any more.
    void release();

private:
    struct Line;

    std::atomic<Line *> first_;
    Line *last_;
    std::atomic<unsigned> lost_;
};

// While one lives, this thread's trace lines are kept in an object, which outlives it.
class TraceInto {
public:
    explicit TraceInto(TraceLines &lines) : outer_(current_) { current_ = &lines; }
    ~TraceInto() { current_ = outer_; }
    TraceInto(const TraceInto &) = delete;
    TraceInto &operator=(const TraceInto &) = delete;
    // Where this thread's lines go; null: to the trace library.
    static TraceLines *current() { return current_; }

private:
    TraceLines *const outer_;
    static constinit inline thread_local TraceLines *current_ = nullptr;
};

} // namespace tavstrg

// SPDX-License-Identifier: Apache-2.0
// Lines of text appended to a file that several processes and threads may share.
#pragma once

#include <cstddef>

// Disables cancellation of the thread and restores errno at the end: callers of the two libraries expect neither a
// cancellation point nor a changed errno.
class Undisturbed {
public:
    Undisturbed();
    ~Undisturbed();
    Undisturbed(const Undisturbed &) = delete;
    Undisturbed &operator=(const Undisturbed &) = delete;

private:
    int errno_;
    int cancelState_;
};

// Holds the lock of the library. A fork() waits for it: a child of a process with threads inherits the locks that other
// threads hold at that moment, and would wait for them for ever.
class Locked {
public:
    Locked();
    ~Locked();
    Locked(const Locked &) = delete;
    Locked &operator=(const Locked &) = delete;
};

// Text that grows. Text for which there is no memory is left out; full() then returns true.
class Line {
public:
    Line() = default;
    ~Line();
    Line(const Line &) = delete;
    Line &operator=(const Line &) = delete;

    void add(const char *text, size_t length);
    void add(const char *text); // null adds nothing
    void format(const char *format, ...) __attribute__((format(printf, 2, 3)));
    void formatList(const char *format, __builtin_va_list arguments) __attribute__((format(printf, 2, 0)));
    // Adds the time, formatted by strftime, and milliseconds.
    void addTime(const char *format, bool local);

    void keepOneLine(); // replaces line ends in the text so far by blanks

    const char *text() const { return text_ != nullptr ? text_ : short_; }
    size_t length() const { return length_; }
    bool full() const { return full_; }

private:
    bool reserve(size_t more);
    char *end() { return (text_ != nullptr ? text_ : short_) + length_; }

    char short_[1024] = {};
    char *text_ = nullptr; // replaces short_ when that is too small
    size_t length_ = 0;
    size_t room_ = sizeof short_;
    bool full_ = false;
};

// How soon a renamed or removed file is noticed: at the next line, or at the first line that comes 10 ms later. Looking
// up the path costs more than writing a line.
enum class Rotation { checkedAtEachLine, checkedNowAndThen };

// Appends the line, in one write, to the file of that path ("-" is standard error). A terminal gets each byte that is
// not printable ASCII as \xNN. Returns 0, or an errno value.
//
// The file is created readable by its owner and group only. A file, pipe or terminal is possible; an open that would
// block fails, and so does one through a symbolic link that neither root nor this process's user has made.
//
// A regular file stays open until another path is given or the path leads to another file.
int appendLine(const char *path, const Line &line, Rotation rotation);

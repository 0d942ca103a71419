// SPDX-License-Identifier: Apache-2.0
// One line of text for a file that several processes and threads may share.
#pragma once

#include <cstddef>

// While one lives, the thread cannot be cancelled, and errno is restored at its end: callers of the libraries expect
// neither a cancellation point nor another errno.
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

// Text that grows; what does not fit in memory is left out, and full() is then true.
class Line {
public:
    Line() = default;
    ~Line();
    Line(const Line &) = delete;
    Line &operator=(const Line &) = delete;

    void add(const char *text, size_t length);
    void add(const char *text); // null is nothing
    void format(const char *format, ...) __attribute__((format(printf, 2, 3)));
    void formatList(const char *format, __builtin_va_list arguments) __attribute__((format(printf, 2, 0)));

    void keepOneLine(); // line ends in what was added so far become blanks

    const char *text() const { return text_ != nullptr ? text_ : short_; }
    size_t length() const { return length_; }
    bool full() const { return full_; }

private:
    bool reserve(size_t more);
    char *end() { return (text_ != nullptr ? text_ : short_) + length_; }

    char short_[1024] = {};
    char *text_ = nullptr; // when it has outgrown short_
    size_t length_ = 0;
    size_t room_ = sizeof short_;
    bool full_ = false;
};

// Appends the line, in one write, to the file of that name ("-" is standard error); a terminal gets it with all bytes
// but printable ASCII escaped. A new file is readable to its owner and group only. Returns 0 or an errno value. A file,
// pipe or terminal will do; anything that would block at opening fails, and so does a symbolic link that neither root
// nor this process's user has made.
int appendLine(const char *path, const Line &line);

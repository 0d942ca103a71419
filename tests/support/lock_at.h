// SPDX-License-Identifier: Apache-2.0
// What another thread does in the middle of the product's work: at the moment at which a line is traced.
#pragma once

#include "runtime/trace.h"

#include <cstdarg>
#include <cstdio>
#include <functional>
#include <pthread.h>
#include <string>

using namespace tavstrg;

// Acts whenever a line is traced. Other lines go nowhere while one lives. One at a time.
class AtLine {
public:
    AtLine(std::string line, std::function<void()> act) : before_(g_Func.trace.TraceLog.load())
    {
        wanted() = std::move(line);
        action() = std::move(act);
        g_Func.trace.TraceLog = look;
    }
    ~AtLine() { g_Func.trace.TraceLog = before_; }
    AtLine(const AtLine &) = delete;
    AtLine &operator=(const AtLine &) = delete;

private:
    static std::string &wanted()
    {
        static std::string line;
        return line;
    }
    static std::function<void()> &action()
    {
        static std::function<void()> act;
        return act;
    }
    static void look(int, const char *, const char *function, int, const char *format, ...)
    {
        char text[512];
        va_list args;
        va_start(args, format);
        std::vsnprintf(text, sizeof text, format, args);
        va_end(args);
        if (wanted() == text || wanted() == std::string(function) + " " + text) {
            action()();
        }
    }
    decltype(g_Func.trace.TraceLog.load()) before_;
};

// Takes the lock of a segment at the moment at which a line is traced, and keeps the last failure.
class LockAt {
public:
    LockAt(const char *line, pthread_mutex_t &mutex)
    {
        wanted = line;
        taken = &mutex;
        g_Func.trace.TraceLog = look;
    }
    ~LockAt()
    {
        g_Func.trace.TraceLog = nullptr;
        pthread_mutex_unlock(taken);
    }
    LockAt(const LockAt &) = delete;
    LockAt &operator=(const LockAt &) = delete;
    static std::string lastFailure() { return failure; }

private:
    static void look(int level, const char *, const char *function, int, const char *format, ...)
    {
        char line[512];
        va_list args;
        va_start(args, format);
        std::vsnprintf(line, sizeof line, format, args);
        va_end(args);
        if (wanted == std::string(line)) {
            pthread_mutex_lock(taken);
        }
        if (level == kFailure) {
            failure = std::string(function) + " " + line;
        }
    }
    static inline const char *wanted = nullptr;
    static inline pthread_mutex_t *taken = nullptr;
    static inline std::string failure;
};

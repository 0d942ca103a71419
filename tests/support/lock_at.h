// SPDX-License-Identifier: Apache-2.0
// A lock that another thread takes during the provider's work.
#pragma once

#include "runtime/trace.h"

#include <cstdarg>
#include <cstdio>
#include <pthread.h>
#include <string>

using namespace tavstrg;

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

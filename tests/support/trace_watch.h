// SPDX-License-Identifier: Apache-2.0
// Watches for one trace line without taking memory, for tests in which memory is short.
#pragma once

#include "runtime/trace.h"

#include <cstdarg>
#include <cstdio>
#include <cstring>

using namespace tavstrg;

class TraceWatch {
public:
    TraceWatch(int level, const char *text)
    {
        wantedLevel = level;
        wantedText = text;
        count = 0;
        g_Func.trace.TraceLog = look;
    }
    ~TraceWatch() { g_Func.trace.TraceLog = nullptr; }
    TraceWatch(const TraceWatch &) = delete;
    TraceWatch &operator=(const TraceWatch &) = delete;
    // How often exactly this line was traced.
    int seen() const { return count; }

private:
    static void look(int level, const char *, const char *, int, const char *format, ...)
    {
        char line[512];
        va_list args;
        va_start(args, format);
        std::vsnprintf(line, sizeof line, format, args);
        va_end(args);
        count += level == wantedLevel && std::strcmp(line, wantedText) == 0 ? 1 : 0;
    }

    static inline int wantedLevel = 0;
    static inline const char *wantedText = "";
    static inline int count = 0;
};

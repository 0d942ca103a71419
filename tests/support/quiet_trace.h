// Keeps the last trace line without allocating, for tests in which memory is short.
#pragma once

#include "provider/runtime/tavCommonTrace.h"

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <string>

class QuietTrace {
public:
    QuietTrace()
    {
        previousPath_ = g_Func.trace.SetFilePath.exchange(nullptr);
        previousLog_ = g_Func.trace.TraceLog.exchange(record);
    }
    ~QuietTrace()
    {
        g_Func.trace.SetFilePath = previousPath_;
        g_Func.trace.TraceLog = previousLog_;
    }
    QuietTrace(const QuietTrace &) = delete;
    QuietTrace &operator=(const QuietTrace &) = delete;

    std::string text() const { return line(); }

private:
    static char *line()
    {
        static char text[512];
        return text;
    }
    static void record(int, const char *, const char *, int, const char *format, ...)
    {
        va_list args;
        va_start(args, format);
        std::vsnprintf(line(), 512, format, args);
        va_end(args);
    }

    decltype(g_Func.trace.SetFilePath.load()) previousPath_;
    decltype(g_Func.trace.TraceLog.load()) previousLog_;
};

// Name of the test program, as sim::countCallsOf knows it.
inline std::string ownName()
{
    return program_invocation_short_name;
}

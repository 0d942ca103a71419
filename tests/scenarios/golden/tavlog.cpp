// SPDX-License-Identifier: Apache-2.0
// libtavlog.so of the golden traces.
#include "scenarios/golden/line.h"

#include <cerrno>
#include <cstring>

extern "C" [[gnu::visibility("default")]] void SetFilePath(const char *name)
{
    if (std::strcmp(name, "tavstrg.log") != 0) {
        golden::writeLine("SetFilePath " + std::string(name));
    }
}

extern "C" [[gnu::visibility("default")]] void TraceLog(int level, const char *module, const char *function, int line,
                                                        const char *format, ...) __attribute__((format(printf, 5, 6)));

extern "C" void TraceLog(int level, const char *module, const char *function, int, const char *format, ...)
{
    const int error = errno;
    char text[8192];
    va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
    golden::writeLine(std::to_string(level) + " " + module + function + " " + text);
    errno = error;
}

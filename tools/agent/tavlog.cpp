// SPDX-License-Identifier: Apache-2.0
// libtavlog.so for development: writes trace lines of level TAVLOG_LEVEL and above to the file TAVLOG_FILE ("-" is
// standard error). Without TAVLOG_FILE it writes nothing. The path of SetFilePath is only for the agent's library.
#include "agent/line.h"

#include <cstdarg>
#include <cstdlib>

extern "C" [[gnu::visibility("default")]] void SetFilePath(const char *) {}

extern "C" [[gnu::visibility("default")]] void TraceLog(int level, const char *module, const char *function, int line,
                                                        const char *format, ...) __attribute__((format(printf, 5, 6)));

extern "C" void TraceLog(int level, const char *module, const char *function, int line, const char *format, ...)
{
    const char *path = std::getenv("TAVLOG_FILE");
    const char *least = std::getenv("TAVLOG_LEVEL");
    if (path == nullptr || *path == '\0' || format == nullptr ||
        (least != nullptr && level < std::strtol(least, nullptr, 10))) {
        return;
    }
    const Undisturbed undisturbed;
    Line text;
    text.addTime("%Y-%m-%d %H:%M:%S", true);
    text.format(" %d %s%s%s:%d ", level, module != nullptr ? module : "",
                module != nullptr && *module != '\0' ? " " : "", function != nullptr ? function : "?", line);
    va_list arguments;
    va_start(arguments, format);
    text.formatList(format, arguments);
    va_end(arguments);
    text.keepOneLine();
    text.add("\n");
    appendLine(path, text, Rotation::checkedNowAndThen);
}

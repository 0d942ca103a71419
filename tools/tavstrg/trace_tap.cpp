// SPDX-License-Identifier: Apache-2.0
#include "tavstrg/trace_tap.h"

#include <dlfcn.h>

#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <mutex>
#include <string>
#include <string_view>
#include <utility>

namespace tool {
namespace {

constexpr std::string_view kTraceLibrary = "/opt/qlm/tavkit_sa/lib/libtavlog.so";

using SetFilePathFunction = void (*)(const char *);
using TraceLogFunction = void (*)(int, const char *, const char *, int, const char *, ...);

std::mutex guard; // of the sink: threads of the provider trace at the same time
TraceSink theSink;
std::atomic<bool> tapped{false};
// The agent's library, which stays loaded: the provider may trace until the process ends.
std::atomic<SetFilePathFunction> agentsSetFilePath{nullptr};
std::atomic<TraceLogFunction> agentsTraceLog{nullptr};

void *realDlopen(const char *file, int mode)
{
    static const auto real = reinterpret_cast<void *(*)(const char *, int)>(dlsym(RTLD_NEXT, "dlopen"));
    return real(file, mode);
}

void findAgentsLibrary(int mode)
{
    void *const library = realDlopen(kTraceLibrary.data(), mode);
    if (library != nullptr) {
        agentsSetFilePath = reinterpret_cast<SetFilePathFunction>(dlsym(library, "SetFilePath"));
        agentsTraceLog = reinterpret_cast<TraceLogFunction>(dlsym(library, "TraceLog"));
    }
}

std::string formatted(const char *format, va_list arguments)
{
    char text[512];
    va_list again;
    va_copy(again, arguments);
    const int length = std::vsnprintf(text, sizeof text, format, arguments);
    std::string result(text);
    if (length >= static_cast<int>(sizeof text)) {
        result.resize(static_cast<size_t>(length));
        std::vsnprintf(result.data(), result.size() + 1, format, again);
    }
    va_end(again);
    return result;
}

} // namespace

TraceTap::TraceTap(TraceSink sink)
{
    const std::lock_guard held(guard);
    theSink = std::move(sink);
    tapped = true;
}

TraceTap::~TraceTap()
{
    tapped = false;
    const std::lock_guard held(guard);
    theSink = nullptr;
}

} // namespace tool

// Under a name of its own and an assembler label: the header's declarations do not get in the way.
extern "C" [[gnu::visibility("default")]] void *tapDlopen(const char *file, int mode) __asm__("dlopen");
extern "C" void *tapDlopen(const char *file, int mode)
{
    if (file == nullptr || !tool::tapped || tool::kTraceLibrary != file) {
        return tool::realDlopen(file, mode);
    }
    tool::findAgentsLibrary(mode);
    return tool::realDlopen(nullptr, RTLD_LAZY); // this program, with the two functions below
}

extern "C" [[gnu::visibility("default")]] void SetFilePath(const char *name)
{
    if (const auto next = tool::agentsSetFilePath.load()) {
        next(name);
    }
}

extern "C" [[gnu::visibility("default")]] void TraceLog(int level, const char *module, const char *function, int line,
                                                        const char *format, ...) __attribute__((format(printf, 5, 6)));
extern "C" void TraceLog(int level, const char *module, const char *function, int line, const char *format, ...)
{
    const int error = errno;
    va_list arguments;
    va_start(arguments, format);
    const std::string text = tool::formatted(format, arguments);
    va_end(arguments);
    if (const auto next = tool::agentsTraceLog.load()) {
        next(level, module, function, line, "%s", text.c_str());
    }
    if (tool::tapped) {
        const std::lock_guard held(tool::guard);
        if (tool::theSink) {
            tool::theSink(level, function, text.c_str());
        }
    }
    errno = error;
}

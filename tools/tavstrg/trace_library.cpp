// SPDX-License-Identifier: Apache-2.0
// libtavtrace.so: stands in for the agent's two libraries in the tool's own process, so that the tool sees what the
// provider traces. It is a library of its own because the names are the agent's: exported by the tool itself, they
// would also be found by an agent's library that is loaded beside it.
#include "runtime/trace.h"

#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <pthread.h>

namespace {

using Take = void (*)(int level, const char *function, const char *text);
using SetPath = void (*)(const char *name);
using Log = void (*)(int level, const char *module, const char *function, int line, const char *format, ...);

std::atomic<Take> taker{nullptr};
std::atomic<SetPath> nextSetPath{nullptr};
std::atomic<Log> nextLog{nullptr};

// The provider expects neither a cancellation point nor another errno.
class Undisturbed {
public:
    Undisturbed() : errno_(errno) { pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &state_); }
    ~Undisturbed()
    {
        pthread_setcancelstate(state_, nullptr);
        errno = errno_;
    }
    Undisturbed(const Undisturbed &) = delete;
    Undisturbed &operator=(const Undisturbed &) = delete;

private:
    int errno_;
    int state_ = 0;
};

} // namespace

#define EXPORTED extern "C" [[gnu::visibility("default")]]

// Each line goes to take, and through the other two, which may be null, to the library that this one stands in for.
EXPORTED void TavTraceTo(Take take, SetPath setPath, Log log)
{
    taker = take;
    nextSetPath = setPath;
    nextLog = log;
}

EXPORTED void SetFilePath(const char *name)
{
    if (const SetPath next = nextSetPath) {
        next(name);
    }
}

EXPORTED void TraceLog(int level, const char *module, const char *function, int line, const char *format, ...)
    __attribute__((format(printf, 5, 6)));

extern "C" void TraceLog(int level, const char *module, const char *function, int line, const char *format, ...)
{
    const Undisturbed undisturbed;
    char text[2048];
    va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
    if (const Take take = taker) {
        take(level, function, text);
    }
    if (const Log next = nextLog) {
        next(level, module, function, line, "%s", text);
    }
}

// Commands that only read send no alert.
EXPORTED int SendIndication(tavstrg::AlertIndication)
{
    return 0;
}

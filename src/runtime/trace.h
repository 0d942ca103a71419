// SPDX-License-Identifier: Apache-2.0
// The agent's libraries, loaded at run time, and the one way to its trace log.
//
// The provider does not link the agent's libraries: it must load, and fail softly, where the agent is damaged.
#pragma once

#include "runtime/trace_lines.h"

#include <atomic>
#include <cstdint>
#include <utility>

namespace tavstrg {

// Argument of SendIndication of the alert library, passed by value.
struct AlertIndication {
    uint32_t version; // always 0
    uint32_t method;  // how the agent delivers it, 1 to 3
    const char *sourceName;
    uint32_t eventID;
    int32_t eventType; // 1 error, 2 warning, 4 information
    int32_t numOfStrings;
    const char **strings; // insertion strings, owned by the caller
};
static_assert(sizeof(AlertIndication) == 40);

// libtavlog.so. Pointers are null while the library is not loaded; request threads read them while another thread
// loads or unloads.
struct TraceLibrary {
    std::atomic<void *> handle;
    std::atomic<void (*)(const char *name)> SetFilePath;
    std::atomic<void (*)(int level, const char *module, const char *function, int line, const char *format, ...)>
        TraceLog;
};

// libtavalert.so.
struct AlertLibrary {
    std::atomic<void *> handle;
    std::atomic<int (*)(AlertIndication record)> SendIndication;
};

struct AgentFunctions {
    TraceLibrary trace;
    AlertLibrary alert;
};

} // namespace tavstrg

extern tavstrg::AgentFunctions g_Func;
extern char g_logfnm[16]; // name of the trace file, always "tavstrg.log" once InitProcess ran

namespace tavstrg {

constexpr char kTraceFile[] = "tavstrg.log"; // the name that every caller of InitProcess passes

// Levels of the trace library that the provider uses.
constexpr int kDetail = 0;  // entry, exit, values, each broker call about to be made
constexpr int kFailure = 3; // failures, and the start and end of each entry point of the broker

} // namespace tavstrg

// Opens <agent root>/lib/<fileName> lazily. Returns the handle, or null (also for a null name). The root is compiled
// in.
void *LoadLibrary(const char *fileName);
// Returns the address of a symbol of a loaded library; null if either argument is null or there is no such symbol.
void *GetProcAddress(void *module, const char *name);
// Sets g_logfnm and loads what is missing of the two libraries. Returns 0 if every function is there; otherwise -1,
// after one message to the system log. What was loaded before the failure stays.
int InitProcess(const char *logFileName);
// Unloads the alert library, then the trace library. One whose dlclose fails stays as it was.
void FinishProcess();

namespace tavstrg {

// Calls into the trace library, and into the alert library, that are under way; FinishProcess unloads a library only
// when there are none.
extern std::atomic<int32_t> g_tracing;
extern std::atomic<int32_t> g_alerting;

// One such call. Counted before the library's function is looked up, so that FinishProcess sees it.
class LibraryCall {
public:
    explicit LibraryCall(std::atomic<int32_t> &calls) : calls_(calls) { calls_.fetch_add(1); }
    ~LibraryCall() { calls_.fetch_sub(1); }
    LibraryCall(const LibraryCall &) = delete;
    LibraryCall &operator=(const LibraryCall &) = delete;

private:
    std::atomic<int32_t> &calls_;
};

inline void traceFormatIsChecked(const char *, ...) __attribute__((format(printf, 1, 2)));
inline void traceFormatIsChecked(const char *, ...) {}

// The named function under whose name this thread traces. A named function opens a scope as its first statement, so
// that it is destroyed last; whatever the function calls traces under its name until a function called opens a scope of
// its own. Leaving a scope, also by an unwinding cancellation, puts the outer name back.
class TraceScope {
public:
    explicit TraceScope(const char *function = __builtin_FUNCTION()) : outer_(std::exchange(current_, function)) {}
    ~TraceScope() { current_ = outer_; }
    TraceScope(const TraceScope &) = delete;
    TraceScope &operator=(const TraceScope &) = delete;
    // Name of the innermost scope that is open in this thread; empty outside of all.
    static const char *current() { return current_; }

private:
    const char *outer_;
    static constinit inline thread_local const char *current_ = "";
};

// Whether a trace line has a receiver at this moment. For traces that take work to compose.
inline bool traceIsReceived()
{
    return g_Func.trace.SetFilePath.load() != nullptr || g_Func.trace.TraceLog.load() != nullptr;
}

// One trace line under the current scope's name: SetFilePath, then TraceLog, each only if it is loaded; or, where this
// thread's lines are kept, into those. line is the source line. May change errno: save it before. Not inline: copies of
// it would be most of the provider's code.
template <class... Args> [[gnu::noinline]] void traceLine(int level, int line, const char *format, Args... args)
{
    if (!traceIsReceived()) {
        return; // without the cost of counting the call
    }
    if (TraceLines *const kept = TraceInto::current()) {
        kept->add(level, line, format, args...);
        return;
    }
    const LibraryCall now(g_tracing);
    if (const auto setFilePath = g_Func.trace.SetFilePath.load()) {
        setFilePath(g_logfnm);
    }
    if (const auto traceLog = g_Func.trace.TraceLog.load()) {
        traceLog(level, "", TraceScope::current(), line, format, args...);
    }
}

} // namespace tavstrg

// A macro for the source line, and so that the compiler checks the format.

#define TRACE(level, ...)                                                                                              \
    (tavstrg::traceLine(level, __LINE__, __VA_ARGS__), (false ? tavstrg::traceFormatIsChecked(__VA_ARGS__) : void()))
// return TRACED(-1, kFailure, "_OUT_ param(fd) Failure!!"); message and result stand together.

#define TRACED(value, level, ...) (TRACE(level, __VA_ARGS__), (value))

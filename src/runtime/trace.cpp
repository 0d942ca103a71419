// SPDX-License-Identifier: Apache-2.0
#include "runtime/trace.h"

#include <climits>
#include <cstdio>
#include <cstring>
#include <dlfcn.h>
#include <mutex>
#include <syslog.h>
#include <unistd.h>

using namespace tavstrg;

// Nothing in this file traces: tracing depends on it. Failures here go to the system log.

AgentFunctions g_Func;
char g_logfnm[16];
std::atomic<int32_t> tavstrg::g_tracing{0};
std::atomic<int32_t> tavstrg::g_alerting{0};

namespace {

constexpr int kUnloadWaits = 1000;        // about a second: a call writes one line or sends one alert
constexpr useconds_t kUnloadPause = 1000; // 1 ms

// Whether no thread is inside a library any more. Its pointers are null by now, so none goes in.
bool callsEnded(const std::atomic<int32_t> &calls)
{
    for (int waits = 0; calls != 0 && waits < kUnloadWaits; ++waits) {
        usleep(kUnloadPause);
    }
    return calls == 0;
}

constexpr char kLibraryRoot[] = "/opt/qlm/tavkit_sa/"; // deliberate: compiled in, whatever the configuration file says
constexpr char kTraceLibrary[] = "libtavlog.so";
constexpr char kAlertLibrary[] = "libtavalert.so";

std::mutex loading; // the broker calls factories and cleanups from several threads

int logFailure(const char *text)
{
    syslog(LOG_ERR, "%s", text);
    return -1;
}

bool everythingLoaded()
{
    return g_Func.trace.handle != nullptr && g_Func.trace.SetFilePath != nullptr && g_Func.trace.TraceLog != nullptr &&
           g_Func.alert.handle != nullptr && g_Func.alert.SendIndication != nullptr;
}

// An existing handle is kept: opening again would leave a reference to the library that is never closed.
bool loadInto(std::atomic<void *> &handle, const char *library)
{
    if (handle == nullptr) {
        handle = LoadLibrary(library);
    }
    return handle != nullptr;
}

template <class Function> bool resolveInto(std::atomic<Function> &function, void *handle, const char *name)
{
    function = reinterpret_cast<Function>(GetProcAddress(handle, name));
    return function != nullptr;
}

// Request threads read the name without a lock once SetFilePath is set, so it is written only if it differs: the
// provider has only one name, which is set before the library is loaded.
void rememberLogFile(const char *name)
{
    const size_t length = strnlen(name, sizeof g_logfnm - 1);
    if (strncmp(g_logfnm, name, length) != 0 || g_logfnm[length] != '\0') {
        std::memcpy(g_logfnm, name, length);
        g_logfnm[length] = '\0';
    }
}

} // namespace

void *LoadLibrary(const char *fileName)
{
    if (fileName == nullptr) {
        return nullptr;
    }
    char path[PATH_MAX];
    const int length = std::snprintf(path, sizeof path, "%slib/%s", kLibraryRoot, fileName);
    if (length < 0 || length >= static_cast<int>(sizeof path)) {
        return nullptr;
    }
    return dlopen(path, RTLD_LAZY);
}

void *GetProcAddress(void *module, const char *name)
{
    return module == nullptr || name == nullptr ? nullptr : dlsym(module, name);
}

int InitProcess(const char *logFileName)
{
    const std::lock_guard held(loading);
    if (logFileName != nullptr) {
        rememberLogFile(logFileName);
    }
    if (everythingLoaded()) {
        return 0;
    }
    TraceLibrary &trace = g_Func.trace;
    if (!loadInto(trace.handle, kTraceLibrary)) {
        return logFailure("dlopen(libtavlog.so) Failure!!");
    }
    if (!resolveInto(trace.SetFilePath, trace.handle, "SetFilePath")) {
        return logFailure("dlsym(libtavlog.so SetFilePath()) Failure!!");
    }
    if (!resolveInto(trace.TraceLog, trace.handle, "TraceLog")) {
        return logFailure("dlsym(libtavlog.so TraceLog()) Failure!!");
    }
    AlertLibrary &alert = g_Func.alert;
    if (!loadInto(alert.handle, kAlertLibrary)) {
        return logFailure("dlopen(libtavalert.so) Failure!!");
    }
    if (!resolveInto(alert.SendIndication, alert.handle, "SendIndication")) {
        return logFailure("dlsym(libtavalert.so SendIndication()) Failure!!");
    }
    return 0;
}

void FinishProcess()
{
    const std::lock_guard held(loading);
    // The pointers are cleared before the library is unloaded, so that no thread calls into it; a library that stays
    // gets them back.
    AlertLibrary &alert = g_Func.alert;
    if (void *const handle = alert.handle) {
        const auto sendIndication = alert.SendIndication.exchange(nullptr);
        if (callsEnded(g_alerting) && dlclose(handle) == 0) {
            alert.handle = nullptr;
        } else {
            alert.SendIndication = sendIndication;
        }
    }
    TraceLibrary &trace = g_Func.trace;
    if (void *const handle = trace.handle) {
        const auto traceLog = trace.TraceLog.exchange(nullptr);
        const auto setFilePath = trace.SetFilePath.exchange(nullptr);
        if (callsEnded(g_tracing) && dlclose(handle) == 0) {
            trace.handle = nullptr;
        } else {
            trace.SetFilePath = setFilePath;
            trace.TraceLog = traceLog;
        }
    }
}

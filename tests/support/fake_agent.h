// SPDX-License-Identifier: Apache-2.0
// The agent's two libraries and the system log as the product sees them, under the control of a test. Included by one
// source of a program that is linked with --wrap for the functions of the C library defined here.
#pragma once

#include "runtime/trace.h"

#include <cstdarg>
#include <cstdio>
#include <mutex>
#include <set>
#include <string>
#include <vector>

using namespace tavstrg;

// While one lives the product finds both libraries, whole; without one, none. One at a time.
class FakeAgent {
public:
    FakeAgent() { current() = this; }
    ~FakeAgent()
    {
        current() = nullptr;
        g_Func.trace.handle = nullptr;
        g_Func.trace.SetFilePath = nullptr;
        g_Func.trace.TraceLog = nullptr;
        g_Func.alert.handle = nullptr;
        g_Func.alert.SendIndication = nullptr;
    }
    FakeAgent(const FakeAgent &) = delete;
    FakeAgent &operator=(const FakeAgent &) = delete;

    static FakeAgent *&current()
    {
        static FakeAgent *agent = nullptr;
        return agent;
    }
    static std::vector<std::string> &systemLog()
    {
        static std::vector<std::string> lines;
        return lines;
    }
    static std::mutex &guard()
    {
        static std::mutex mutex;
        return mutex;
    }

    std::set<std::string> missing;   // library file names and function names that are not there
    std::set<std::string> stuck;     // library file names that cannot be closed
    std::vector<std::string> opened; // paths, in order
    std::vector<int> openModes;      // of the same
    std::vector<std::string> closed; // library file names, in order
    std::vector<std::string> lines;  // that the trace library got, "level|module|function|text"
    std::vector<std::string> paths;  // that SetFilePath got
    std::vector<std::string> calls;  // of either of the two, in order: "SetFilePath", "TraceLog"
};

namespace fake_agent {

constexpr const char *kLibraries[] = {"libtavlog.so", "libtavalert.so"};

inline void setFilePath(const char *name)
{
    const std::lock_guard held(FakeAgent::guard());
    FakeAgent::current()->paths.push_back(name);
    FakeAgent::current()->calls.emplace_back("SetFilePath");
}

inline void traceLog(int level, const char *module, const char *function, int, const char *format, ...)
{
    char text[4096];
    va_list args;
    va_start(args, format);
    std::vsnprintf(text, sizeof text, format, args);
    va_end(args);
    const std::lock_guard held(FakeAgent::guard());
    FakeAgent::current()->lines.push_back(std::to_string(level) + "|" + module + "|" + function + "|" + text);
    FakeAgent::current()->calls.emplace_back("TraceLog");
}

inline int sendIndication(AlertIndication)
{
    return 0;
}

} // namespace fake_agent

extern "C" {

void *__wrap_dlopen(const char *path, int mode)
{
    const std::lock_guard held(FakeAgent::guard());
    FakeAgent *const agent = FakeAgent::current();
    if (agent == nullptr) {
        return nullptr;
    }
    agent->opened.push_back(path);
    agent->openModes.push_back(mode);
    for (const char *const &library : fake_agent::kLibraries) {
        if (agent->opened.back().ends_with(std::string("/") + library) && !agent->missing.contains(library)) {
            return const_cast<char **>(&library);
        }
    }
    return nullptr;
}

void *__wrap_dlsym(void *handle, const char *name)
{
    const std::string library = *static_cast<const char **>(handle);
    if (FakeAgent::current()->missing.contains(name)) {
        return nullptr;
    }
    if (library == "libtavlog.so" && std::string(name) == "SetFilePath") {
        return reinterpret_cast<void *>(fake_agent::setFilePath);
    }
    if (library == "libtavlog.so" && std::string(name) == "TraceLog") {
        return reinterpret_cast<void *>(fake_agent::traceLog);
    }
    if (library == "libtavalert.so" && std::string(name) == "SendIndication") {
        return reinterpret_cast<void *>(fake_agent::sendIndication);
    }
    return nullptr;
}

int __wrap_dlclose(void *handle)
{
    const std::lock_guard held(FakeAgent::guard());
    const std::string library = *static_cast<const char **>(handle);
    if (FakeAgent::current()->stuck.contains(library)) {
        return -1;
    }
    FakeAgent::current()->closed.push_back(library);
    return 0;
}

static void fakeSystemLog(int priority, const char *format, va_list args)
{
    char text[1024];
    std::vsnprintf(text, sizeof text, format, args);
    const std::lock_guard held(FakeAgent::guard());
    FakeAgent::systemLog().push_back(std::to_string(priority) + "|" + text);
}

void __wrap_syslog(int priority, const char *format, ...)
{
    va_list args;
    va_start(args, format);
    fakeSystemLog(priority, format, args);
    va_end(args);
}

void __wrap___syslog_chk(int priority, int, const char *format, ...)
{
    va_list args;
    va_start(args, format);
    fakeSystemLog(priority, format, args);
    va_end(args);
}
}

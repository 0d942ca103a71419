// SPDX-License-Identifier: Apache-2.0
#include "tavstrg/trace_capture.h"

#include "tavstrg/agent_paths.h"
#include "tavstrg/json.h"
#include "tavstrg/words.h"

#include "sim/sim.h"

#include <dlfcn.h>

#include <cstdio>
#include <filesystem>
#include <mutex>
#include <system_error>
#include <utility>

namespace tool {
namespace {

constexpr const char *kOwnLibrary = "libtavtrace.so";
constexpr size_t kMostDetails = 100000; // lines; a collection of 24 disks traces some 20000

struct Store {
    std::mutex guard;
    std::vector<TraceLine> lines;
    size_t details = 0;
    TracePrinting printing = TracePrinting::none;
    const char *command = "";
    std::function<void(const TraceLine &)> listen;
};

// Never destroyed: a thread of the provider may trace until the process ends.
Store &store()
{
    static auto *const one = new Store;
    return *one;
}

void print(const Store &to, const TraceLine &line)
{
    const std::string text = std::to_string(line.level) + " " + line.function + ": " + line.text;
    const std::string out = to.printing == TracePrinting::json ? noteJson(to.command, "trace: " + text)
                                                               : "trace: " + printable(text) + "\n";
    std::fputs(out.c_str(), stderr);
}

void take(int level, const char *function, const char *text)
{
    Store &to = store();
    const std::lock_guard held(to.guard);
    TraceLine line{level, function == nullptr ? "" : function, text == nullptr ? "" : text};
    if (to.printing != TracePrinting::none) {
        print(to, line);
    }
    if (to.listen) {
        to.listen(line);
    }
    if (level > 0 || to.details < kMostDetails) {
        to.details += level > 0 ? 0 : 1;
        to.lines.push_back(std::move(line));
    }
}

std::string ownLibrary()
{
    Dl_info info{};
    if (dladdr(reinterpret_cast<void *>(&sim::countCallsOf), &info) == 0 || info.dli_fname == nullptr) {
        return "";
    }
    std::error_code error;
    const auto path = std::filesystem::absolute(info.dli_fname, error).parent_path() / kOwnLibrary;
    return std::filesystem::exists(path, error) ? path.string() : "";
}

using SetPath = void (*)(const char *);
using Log = void (*)(int, const char *, const char *, int, const char *, ...);
using TraceTo = void (*)(void (*)(int, const char *, const char *), SetPath, Log);

template <class F> F *symbol(void *handle, const char *name)
{
    return handle == nullptr ? nullptr : reinterpret_cast<F *>(dlsym(handle, name));
}

} // namespace

TraceCapture::TraceCapture(TracePrinting printing, const char *command, bool forward) : library_(ownLibrary())
{
    store().printing = printing;
    store().command = command;
    handle_ = library_.empty() ? nullptr : dlopen(library_.c_str(), RTLD_LAZY);
    auto *traceTo = symbol<std::remove_pointer_t<TraceTo>>(handle_, "TavTraceTo");
    if (traceTo == nullptr) {
        library_.clear();
        return;
    }
    agents_ = forward ? dlopen(kTraceLibrary, RTLD_LAZY) : nullptr;
    traceTo(&take, symbol<std::remove_pointer_t<SetPath>>(agents_, "SetFilePath"),
            symbol<std::remove_pointer_t<Log>>(agents_, "TraceLog"));
}

// The libraries stay loaded: a thread that hangs in the provider may still trace.
TraceCapture::~TraceCapture()
{
    if (auto *traceTo = symbol<std::remove_pointer_t<TraceTo>>(handle_, "TavTraceTo"); traceTo != nullptr) {
        traceTo(nullptr, nullptr, nullptr);
    }
}

std::vector<TraceLine> TraceCapture::lines()
{
    const std::lock_guard held(store().guard);
    return store().lines;
}

void TraceCapture::forget()
{
    const std::lock_guard held(store().guard);
    store().lines.clear();
    store().details = 0;
}

TraceListener::TraceListener(std::function<void(const TraceLine &)> listen)
{
    const std::lock_guard held(store().guard);
    store().listen = std::move(listen);
}

TraceListener::~TraceListener()
{
    const std::lock_guard held(store().guard);
    store().listen = nullptr;
}

} // namespace tool

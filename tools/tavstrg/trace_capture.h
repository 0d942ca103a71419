// SPDX-License-Identifier: Apache-2.0
// What the provider traces in this process, for the explanation of failures and for --trace.
#pragma once

#include <functional>
#include <string>
#include <vector>

namespace tool {

struct TraceLine {
    int level = 0; // 0 detail, 3 failure
    std::string function;
    std::string text;
};

enum class TracePrinting { none, text, json };

// From now on the provider's trace goes to the tool, and with "forward" also to the trace library that the machine has.
// Lines are printed on standard error as they come if "printing" says so, as JSON in notes of the command. The library
// that takes them is libtavtrace.so beside the simulator's library; without it nothing is captured. One per process,
// made while it has one thread.
class TraceCapture {
public:
    TraceCapture(TracePrinting printing, const char *command, bool forward);
    ~TraceCapture();
    TraceCapture(const TraceCapture &) = delete;
    TraceCapture &operator=(const TraceCapture &) = delete;

    // Path of the library that the provider is to load in place of the agent's; empty if there is none.
    const std::string &library() const { return library_; }

    // The lines since the last call of forget(): every failure, and details as long as they are few enough to keep.
    static std::vector<TraceLine> lines();
    static void forget();

private:
    std::string library_;
    void *handle_ = nullptr;
    void *agents_ = nullptr;
};

// While it exists, each captured line also goes to "listen", also lines that the capture does not keep. It is called by
// the thread that traces, one line at a time, and must not call the provider or the capture. One at a time.
class TraceListener {
public:
    explicit TraceListener(std::function<void(const TraceLine &)> listen);
    ~TraceListener();
    TraceListener(const TraceListener &) = delete;
    TraceListener &operator=(const TraceListener &) = delete;
};

} // namespace tool

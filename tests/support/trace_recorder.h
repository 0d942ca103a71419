// SPDX-License-Identifier: Apache-2.0
// Records every trace line of the product in place of the agent's trace library.
#pragma once

#include <string>
#include <vector>

struct TraceRecord {
    int level;
    std::string function;
    std::string text;
};

// While one lives, trace lines go to it. One at a time; safe with several tracing threads.
class TraceRecorder {
public:
    TraceRecorder();
    ~TraceRecorder();
    TraceRecorder(const TraceRecorder &) = delete;
    TraceRecorder &operator=(const TraceRecorder &) = delete;

    std::vector<TraceRecord> records() const;
    // Texts only, of all functions or of one, in order.
    std::vector<std::string> texts() const;
    std::vector<std::string> textsOf(const std::string &function) const;
    // Texts of one function with their levels, "3 ##start##", in order.
    std::vector<std::string> linesOf(const std::string &function) const;
    // Whether a line with exactly this level and text was traced (by that function, when one is named).
    bool has(int level, const std::string &text, const std::string &function = "") const;
    void clear();
};

// SPDX-License-Identifier: Apache-2.0
#include "support/trace_recorder.h"

#include "runtime/trace.h"

#include <cstdarg>
#include <cstdio>
#include <mutex>

using namespace tavstrg;

namespace {

std::mutex guard;
std::vector<TraceRecord> lines;

void recordPath(const char *) {}

void recordLine(int level, const char *, const char *function, int, const char *format, ...)
{
    char text[16384];
    va_list args;
    va_start(args, format);
    std::vsnprintf(text, sizeof text, format, args);
    va_end(args);
    const std::lock_guard held(guard);
    lines.push_back({level, function, text});
}

} // namespace

TraceRecorder::TraceRecorder()
{
    clear();
    g_Func.trace.SetFilePath = recordPath;
    g_Func.trace.TraceLog = recordLine;
}

TraceRecorder::~TraceRecorder()
{
    g_Func.trace.SetFilePath = nullptr;
    g_Func.trace.TraceLog = nullptr;
}

std::vector<TraceRecord> TraceRecorder::records() const
{
    const std::lock_guard held(guard);
    return lines;
}

std::vector<std::string> TraceRecorder::texts() const
{
    std::vector<std::string> result;
    for (const TraceRecord &record : records()) {
        result.push_back(record.text);
    }
    return result;
}

std::vector<std::string> TraceRecorder::textsOf(const std::string &function) const
{
    std::vector<std::string> result;
    for (const TraceRecord &record : records()) {
        if (record.function == function) {
            result.push_back(record.text);
        }
    }
    return result;
}

std::vector<std::string> TraceRecorder::linesOf(const std::string &function) const
{
    std::vector<std::string> result;
    for (const TraceRecord &record : records()) {
        if (record.function == function) {
            result.push_back(std::to_string(record.level) + " " + record.text);
        }
    }
    return result;
}

bool TraceRecorder::has(int level, const std::string &text, const std::string &function) const
{
    for (const TraceRecord &record : records()) {
        if (record.level == level && record.text == text && (function.empty() || record.function == function)) {
            return true;
        }
    }
    return false;
}

void TraceRecorder::clear()
{
    const std::lock_guard held(guard);
    lines.clear();
}

// SPDX-License-Identifier: Apache-2.0
#include "fuzz/fuzz.h"

#include "runtime/trace.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>

using namespace tavstrg;

namespace {

void takePath(const char *) {}

__attribute__((format(printf, 5, 6))) void formatLine(int, const char *, const char *, int, const char *format, ...)
{
    char line[1024];
    va_list args;
    va_start(args, format);
    const int length = std::vsnprintf(line, sizeof line, format, args);
    va_end(args);
    fuzz::require(length >= 0, "a trace can be formatted");
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int *, char ***)
{
    g_Func.trace.SetFilePath = takePath;
    g_Func.trace.TraceLog = formatLine;
    return 0;
}

namespace fuzz {

void require(bool holds, const char *property, const char *file, int line)
{
    if (!holds) {
        std::fprintf(stderr, "%s:%d: this does not hold: %s\n", file, line, property);
        std::abort();
    }
}

std::string_view Parts::next()
{
    constexpr char kSeparator = 0x1E;
    const std::string_view part = rest_.substr(0, rest_.find(kSeparator));
    rest_.remove_prefix(std::min(part.size() + 1, rest_.size()));
    return part;
}

uint8_t Feed::byte()
{
    const Bytes one = bytes(1);
    return one.empty() ? uint8_t{0} : one[0];
}

Bytes Feed::bytes(size_t most)
{
    const Bytes taken = rest_.first(std::min(most, rest_.size()));
    rest_ = rest_.subspan(taken.size());
    return taken;
}

} // namespace fuzz

// SPDX-License-Identifier: Apache-2.0
#include "tavstrg/colour.h"

#include <string_view>

namespace tool {
namespace {

constexpr const char *kReset = "\x1b[0m";

const char *startOf(Mark mark)
{
    switch (mark) {
    case Mark::failure:
        return "\x1b[1;31m"; // bold red
    case Mark::warning:
        return "\x1b[33m"; // yellow
    case Mark::information:
        return "\x1b[36m"; // cyan
    default:
        return "";
    }
}

} // namespace

bool wantsColour(ColourWhen when, bool terminal, const char *term, const char *noColor)
{
    if (when != ColourWhen::automatic) {
        return when == ColourWhen::always;
    }
    const std::string_view name = term == nullptr ? "" : term;
    return terminal && !name.empty() && name != "dumb" && (noColor == nullptr || *noColor == '\0');
}

std::string painted(const std::string &text, Mark mark, bool colour)
{
    return !colour || mark == Mark::none || text.empty() ? text : startOf(mark) + text + kReset;
}

} // namespace tool

// SPDX-License-Identifier: Apache-2.0
// The configuration of the monitoring service: what is accepted is within its bounds, and what is not has a line.
#include "fuzz/fuzz.h"
#include "tavstrg/monitor/config.h"

#include <algorithm>

using namespace tool::monitor;

using fuzz::require;

namespace {

void checkPath(const std::string &path)
{
    require(path.empty() || path[0] == '/', "a path is absolute");
    require(std::none_of(path.begin(), path.end(), [](char c) { return (c >= 0 && c < ' ') || c == '\x7F'; }),
            "a path has no control characters");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const fuzz::Exact input(fuzz::textOf({data, size}));
    const ParsedConfig parsed = parseConfig(input.text());
    const Config &config = parsed.config;
    require(config.cycle >= kLeastCycle && config.cycle <= kMostCycle, "the cycle is within its bounds");
    require(config.linesKilobytes >= 16 && config.linesKilobytes <= 1 << 20, "so is the size");
    require(!config.state.empty(), "there is a state directory");
    for (const std::string &path : {config.state, config.journal, config.hooks, config.lines, config.metrics}) {
        checkPath(path);
    }
    size_t before = 0;
    for (const ConfigProblem &problem : parsed.problems) {
        require(problem.line > before && !problem.reason.empty(), "problems come in the order of their lines");
        before = problem.line;
    }
    require(before <= size, "a line has a byte or ends with one");
    return 0;
}

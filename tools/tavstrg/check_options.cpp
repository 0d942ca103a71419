// SPDX-License-Identifier: Apache-2.0
// The lines of options.inf.
#include "tavstrg/check_lines.h"

#include "tavstrg/nearest.h"
#include "tavstrg/words.h"

#include "runtime/options.h"

#include <algorithm>

using namespace tavstrg;

namespace tool {
namespace {

std::vector<std::string> namesOf(Options options)
{
    std::vector<std::string> names;
    for (const OptionName &known : kOptionNames) {
        if (options.has(known.option)) {
            names.emplace_back(known.line);
        }
    }
    return names;
}

std::string joined(const std::vector<std::string> &names)
{
    std::string text;
    for (const std::string &name : names) {
        text += (text.empty() ? "" : ", ") + name;
    }
    return text;
}

CheckedLine judgeOption(size_t number, std::string_view name)
{
    const std::optional<Options> options = optionsOfName(name);
    if (!options) {
        std::vector<std::string> known = namesOf(*optionsOfName(kAllOptions));
        known.emplace_back(kAllOptions);
        const std::string near = nearest(std::string(name), known);
        return {number, Verdict::skipped,
                "unknown option \"" + printable(name) + '"' + (near.empty() ? "" : "; did you mean " + near + "?")};
    }
    const std::vector<std::string> names = namesOf(*options);
    CheckedLine line{number, Verdict::accepted, (names.size() > 1 ? "options " : "option ") + joined(names)};
    line.meaning["options"] = names;
    return line;
}

} // namespace

std::vector<CheckedLine> checkOptions(std::string_view text)
{
    std::vector<CheckedLine> lines;
    OptionLines options(text);
    while (options.next()) {
        lines.push_back(judgeOption(static_cast<size_t>(options.line()), options.name()));
    }
    if (const size_t end = text.find('\0'); end != std::string_view::npos) {
        lines.push_back({1 + static_cast<size_t>(std::ranges::count(text.substr(0, end), '\n')), Verdict::skipped,
                         "a NUL byte: nothing behind it is read"});
    }
    return lines;
}

} // namespace tool

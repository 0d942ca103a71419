// SPDX-License-Identifier: Apache-2.0
#include "collect/inf/inf_parse.h"

#include "collect/base/text_scan.h"
#include "collect/inf/inf_section.h"

#include <algorithm>

using namespace tavstrg;

namespace {

struct HeaderLine {
    bool found = false;
    size_t begin = 0; // of the line
    size_t after = 0; // begin of the next line
};

// A header may be indented with blanks, and anything may follow it on its line.
HeaderLine findHeader(std::string_view text, std::string_view header)
{
    std::string_view rest = text;
    std::string_view line;
    while (takeLine(rest, line)) {
        if (withoutLeading(line, kBlanks).starts_with(header)) {
            return {true, static_cast<size_t>(line.data() - text.data()), text.size() - rest.size()};
        }
    }
    return {};
}

} // namespace

bool tavstrg::splitInfSections(std::string_view text, std::string_view firstHeader, std::string_view secondHeader,
                               InfSections &sections)
{
    const HeaderLine first = findHeader(text, firstHeader);
    const HeaderLine second = findHeader(text, secondHeader);
    if (!first.found && !second.found) {
        sections = {text, {}};
        return true;
    }
    if (!first.found || !second.found || second.begin < first.after) {
        return false;
    }
    sections = {text.substr(first.after, second.begin - first.after), text.substr(second.after)};
    return true;
}

DriverLine tavstrg::parseDriverLine(std::string_view line, std::string_view &name)
{
    if (withoutLineEnd(line).size() > kMaxDriverLine) {
        return DriverLine::tooLong;
    }
    if (line.find(kGroupManagementPort) != std::string_view::npos ||
        line.find(kGroupDiagnosticPort) != std::string_view::npos) {
        return DriverLine::header;
    }
    std::string_view text = withoutLeading(line, kBlanks);
    if (text.starts_with('#')) {
        return DriverLine::comment;
    }
    text = withoutTrailing(text.substr(0, text.find_first_of("\n\r#")), " \t\r");
    if (text.empty()) {
        return DriverLine::blank;
    }
    name = text.substr(0, text.find_first_of(kBlanks));
    return name.size() > kMaxDriverName ? DriverLine::nameTooLong : DriverLine::name;
}

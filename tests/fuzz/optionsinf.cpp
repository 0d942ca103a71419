// SPDX-License-Identifier: Apache-2.0
// options.inf: its lines, and the options that come of it.
#include "fuzz/fuzz.h"
#include "runtime/options.h"

#include <string>

using namespace tavstrg;

using fuzz::isWithin;
using fuzz::require;

namespace {

constexpr std::string_view kBlanks = " \t\r\v\f\n#";

// The options of all lines together. Each name lies in the text, behind the one before it.
Options optionsOfLines(std::string_view text)
{
    Options all;
    OptionLines lines(text);
    const char *behind = text.data();
    for (int before = 0; lines.next(); before = lines.line()) {
        const std::string_view name = lines.name();
        require(!name.empty() && isWithin(name, text), "a name lies in the text");
        require(name.find_first_of(kBlanks) == std::string_view::npos, "a name ends at a blank or a comment");
        require(name.data() >= behind && lines.line() > before, "names come in the order of their lines");
        behind = name.data() + name.size();
        all.bits |= optionsOfName(name).value_or(Options{}).bits;
    }
    require(lines.line() <= static_cast<int>(text.size()), "a line has a byte or ends with one");
    return all;
}

// The file that says the same in the plainest way.
std::string plainText(Options options)
{
    std::string text;
    for (const OptionName &known : kOptionNames) {
        text += options.has(known.option) ? std::string(known.line) + "\n" : "";
    }
    return text;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const fuzz::Exact input(fuzz::textOf({data, size}));
    const Options options = parseOptions(input.text());
    require(options == optionsOfLines(input.text()), "a text switches on what its lines switch on");
    require((options.bits & ~parseOptions(kAllOptions).bits) == 0, "nothing unknown is switched on");
    require(parseOptions(plainText(options)) == options, "the options' own names give the same options");
    return 0;
}

// SPDX-License-Identifier: Apache-2.0
// Colour on a terminal that has it.
#pragma once

#include <string>

namespace tool {

enum class ColourWhen { automatic, always, never };

// Importance of a piece of text. Without colour the text alone shows it.
enum class Mark { none, information, warning, failure };

// Whether output is to be coloured. terminal: whether it goes to one. term and noColor are the variables TERM and
// NO_COLOR, null when not set. On "automatic" a terminal without a name or called "dumb" has no colours, and NO_COLOR,
// set and not empty, switches colours off (no-color.org); "always" and "never" override both.
bool wantsColour(ColourWhen when, bool terminal, const char *term, const char *noColor);

// The text in the colour of its mark (ECMA-48, SELECT GRAPHIC RENDITION), or as it is.
std::string painted(const std::string &text, Mark mark, bool colour);

} // namespace tool

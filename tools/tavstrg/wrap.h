// SPDX-License-Identifier: Apache-2.0
// Lines that fit the terminal. Nothing is left out: a line that is too long is broken at a blank, and a word that is
// longer than a line at the end of the line. Widths are columns of the terminal, 0 means unlimited; texts are UTF-8.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace tool {

constexpr size_t kIndent = 4; // columns of a broken line's rest, and of one level of the tree

// Columns that a text takes: two for a wide East Asian character or an emoji, none for one that combines with the
// character before it, one for any other and for a byte that is not UTF-8.
size_t columnsOf(std::string_view text);

// The text broken into lines, at least one, without blanks at their ends; leading blanks of the text are kept. The
// first line may have another width than the rest.
std::vector<std::string> wrapped(std::string_view text, size_t firstWidth, size_t restWidth);

// A line and the rest of it, which begins at column hang, each with its line end.
std::string hanging(std::string_view line, size_t hang, size_t width);

// A text of whole lines, each broken to that width; the rest of a broken line is indented by its own indent and
// kIndent.
std::string fitted(std::string_view text, size_t width);

constexpr size_t kNarrowest = 20; // columns that a text gets at least beside another

// Two columns, the left one as wide as its widest entry. A right entry that does not fit continues below its begin, or,
// where too little room is left there, on the next line.
using Rows = std::vector<std::pair<std::string, std::string>>;
std::string twoColumns(const Rows &rows, size_t width);

} // namespace tool

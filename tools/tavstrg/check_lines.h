// SPDX-License-Identifier: Apache-2.0
// How the provider reads each line of the administrator's files, by its own parsers.
#pragma once

#include <nlohmann/json.hpp>

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace tool {

enum class Verdict {
    accepted,
    skipped, // ignored, though it is neither blank nor a comment
    note,    // worth knowing about a line, or about the file
};

struct CheckedLine {
    size_t line = 0; // 1-based; 0: the whole file
    Verdict verdict = Verdict::note;
    std::string text;                         // how it is understood, or why it is skipped; printable
    nlohmann::ordered_json meaning = nullptr; // the same for programs, of an accepted line
};

// Blank lines, comments and section headers are not reported. Each takes the whole text of a file.
std::vector<CheckedLine> checkStorage(std::string_view text);
std::vector<CheckedLine> checkNoScsi(std::string_view text);
std::vector<CheckedLine> checkEndurance(std::string_view text);
std::vector<CheckedLine> checkOptions(std::string_view text);

} // namespace tool

// SPDX-License-Identifier: Apache-2.0
// tavstrg check: what the provider makes of the administrator's files.
#pragma once

#include "tavstrg/check_lines.h"
#include "tavstrg/commands.h"

#include <string>
#include <vector>

namespace tool {

enum class FileState { read, absent, tooLarge, unreadable };

struct CheckedFile {
    std::string path;
    FileState state = FileState::read;
    std::vector<CheckedLine> lines; // what is told of the whole file bears line 0
};

// The three files, as the provider would read them: below the agent's root, or in DIR/data or, where there is none, in
// DIR itself. Throws Failure when DIR is no directory.
std::vector<CheckedFile> checkFiles(const std::string &root);

// "FILE:LINE: ..." for each accepted line and each note, and a summary for each file.
std::string checkedText(const std::vector<CheckedFile> &files);
std::string checkedJson(const std::vector<CheckedFile> &files);
// "FILE:LINE: why" for each line that is skipped and each file that cannot be read, one a line; "" without any.
std::string checkedProblems(const std::vector<CheckedFile> &files);

// Status kFailed when there are problems. Throws Failure.
Outcome check(const Arguments &arguments, const TextStyle &style);

} // namespace tool

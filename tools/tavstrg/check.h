// SPDX-License-Identifier: Apache-2.0
// tavstrg check: how the provider reads the administrator's files, and what makes collections fail on this machine.
#pragma once

#include "tavstrg/check_lines.h"
#include "tavstrg/commands.h"

#include <set>
#include <string>
#include <vector>

namespace tool {

enum class FileState { read, absent, tooLarge, unreadable };

struct CheckedFile {
    std::string path;
    FileState state = FileState::read;
    std::vector<CheckedLine> lines; // those for the whole file have line 0
};

// The four files, as the provider would read them: below the agent's root, or in DIR/data or, where there is none, in
// DIR itself. Throws Failure when DIR is no directory.
std::vector<CheckedFile> checkFiles(const std::string &root);

// What holds for the machine as a whole.
struct MachineFinding {
    bool problem = false; // else a note
    std::string text;     // printable
};

// What makes collections fail on the machine that the process sees: its kernel release, the agent's directories, and
// managed disks that do not answer. Asks disks for their identity, with the provider's own functions.
std::vector<MachineFinding> checkMachine(bool simulated);

// The drivers of the machine's SCSI host adapters.
std::set<std::string> adapterDrivers();
// Adds a note behind each driver of storage.inf that no adapter has, and one at the end if no adapter is managed.
void compareDrivers(const std::set<std::string> &adapters, std::vector<CheckedLine> &lines);

// "FILE:LINE: ..." for each accepted line and each note, and a summary for each file.
std::string checkedText(const std::vector<CheckedFile> &files, const std::vector<MachineFinding> &machine = {});
std::string checkedJson(const std::vector<CheckedFile> &files, const std::vector<MachineFinding> &machine = {});
// "FILE:LINE: why" for each line that is skipped and each file that cannot be read, and the problems of the machine,
// one a line; "" without any.
std::string checkedProblems(const std::vector<CheckedFile> &files, const std::vector<MachineFinding> &machine = {});

// Status kFailed when there are problems. Throws Failure.
Outcome check(const Arguments &arguments, const TextStyle &style);

} // namespace tool

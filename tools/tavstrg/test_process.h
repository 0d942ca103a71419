// Runs a program as a user would, for tests of the built tool.
#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

namespace tool::testing_support {

struct Finished {
    int status = -1; // exit status; -1 when a signal ended it
    int signal = 0;
    pid_t pid = 0; // what it was
    std::string out;
    std::string err;
};

enum class StandardOutput {
    kept,
    full,   // a device on which nothing can be written
    nobody, // a pipe whose reader is gone
};

// Environment entries "NAME=VALUE" are added to the test's own. Signal, when not 0, is sent at once after the start.
Finished runProgram(const std::vector<std::string> &words, const std::vector<std::string> &environment = {},
                    StandardOutput standardOutput = StandardOutput::kept, int signal = 0);

// System V segments that a process made and that are still there.
int segmentsOf(pid_t creator);

} // namespace tool::testing_support

// SPDX-License-Identifier: Apache-2.0
// Runs a program to its end and tells what that took, as the kernel has counted it.
#pragma once

#include <string>
#include <vector>

namespace compare {

struct Command {
    std::vector<std::string> arguments;   // [0]: the program, by name or path
    std::vector<std::string> environment; // "NAME=value", besides the caller's
    bool silent = false;                  // standard error goes to nowhere
};

struct Ended {
    int exitStatus = -1; // -1: it did not start, or a signal ended it
    double wallSeconds = 0;
    double cpuSeconds = 0; // user and system, of the process and of its children that have ended
    long peakKb = 0;       // of the resident set of the largest of them
    std::string output;    // standard output, when it was asked for
};

// Standard error is the caller's unless told otherwise; standard output is kept or goes to nowhere. Throws
// std::runtime_error when the program cannot be run.
Ended run(const Command &command, bool keepOutput = false);

// Of an even number of values the mean of the two in the middle; 0 of none.
double medianOf(std::vector<double> values);

} // namespace compare

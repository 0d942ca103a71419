// SPDX-License-Identifier: Apache-2.0
// Runs the built tool as a user would (support/process.h).
#pragma once

#include "support/process.h"

#include <string>
#include <vector>

namespace tool::testing_support {

using process::Finished;
using StandardOutput = process::Output;

// A new directory, in memory if there is such a file system: a simulated machine consists of many small files.
std::string makeDirectory();

// Environment entries "NAME=VALUE" are added to the test's own. A signal other than 0 is sent right after the start.
Finished runProgram(const std::vector<std::string> &words, const std::vector<std::string> &environment = {},
                    StandardOutput standardOutput = StandardOutput::kept, int signal = 0);

// A program that the test talks to while it runs.
class Running {
public:
    // columns: both outputs are terminals of that width; 0: both are pipes.
    Running(const std::vector<std::string> &words, const std::vector<std::string> &environment,
            unsigned short columns = 0);

    // Waits until one of its outputs contains the text. Returns false if it ended, or half a minute passed, without it.
    bool says(const std::string &text) { return process_.says(text); }
    pid_t pid() const { return process_.pid(); }
    void send(int signal) const { process_.send(signal); }
    void stopReading() { process_.stopReading(); } // closes the reading end of its standard output
    // Waits for its end; kills it after two minutes.
    Finished finish();

private:
    process::Process process_;
};

// Runs a program whose outputs are terminals of that width. Line ends are "\n", as the program wrote them.
Finished runOnTerminal(const std::vector<std::string> &words, const std::vector<std::string> &environment,
                       unsigned short columns);

// Number of System V segments that a process, or one that it started and that has ended, created and that are not
// removed.
int segmentsOf(pid_t creator);

} // namespace tool::testing_support

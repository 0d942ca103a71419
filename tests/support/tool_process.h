// SPDX-License-Identifier: Apache-2.0
// Runs a program as a user would, for tests of the built tool.
#pragma once

#include <sys/types.h>

#include <memory>
#include <string>
#include <vector>

namespace tool::testing_support {

// A new directory of a test's own, in memory where there is such a place: a simulated machine is many small files.
std::string makeDirectory();

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
    closed,
    terminal,
};

// Environment entries "NAME=VALUE" are added to the test's own. Signal, when not 0, is sent at once after the start.
Finished runProgram(const std::vector<std::string> &words, const std::vector<std::string> &environment = {},
                    StandardOutput standardOutput = StandardOutput::kept, int signal = 0);

// A program that is spoken with while it runs.
class Running {
public:
    // columns: both outputs are terminals of that width; 0: both are pipes.
    Running(const std::vector<std::string> &words, const std::vector<std::string> &environment,
            unsigned short columns = 0);
    ~Running(); // ends it for good if it was not waited for
    Running(const Running &) = delete;
    Running &operator=(const Running &) = delete;

    // Waits until what it has written so far, on both outputs together, has the text; false when it ended or half a
    // minute went by without.
    bool says(const std::string &text);
    void send(int signal) const;
    void stopReading(); // its standard output has no reader any more
    Finished finish();

private:
    struct Pipes;
    bool readMore(int milliseconds);

    std::unique_ptr<Pipes> pipes_;
    Finished finished_;
    bool waited_ = false;
};

// Runs a program whose outputs are terminals of that width. Line ends are plain, as the program wrote them.
Finished runOnTerminal(const std::vector<std::string> &words, const std::vector<std::string> &environment,
                       unsigned short columns);

// System V segments that a process, or one that it started and that has ended, made and that are still there.
int segmentsOf(pid_t process);

} // namespace tool::testing_support

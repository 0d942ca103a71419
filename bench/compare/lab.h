// SPDX-License-Identifier: Apache-2.0
// Runs programs on simulated machines and measures them, with and without what the machine itself takes.
#pragma once

#include "support/process.h"

#include <filesystem>
#include <map>
#include <string>
#include <vector>

namespace compare {

// What one run of a program, or several runs one after the other, took.
struct Cost {
    double wallSeconds = 0; // without the simulated machine; 0: unknown, as processes ran at once
    double cpuSeconds = 0;  // without the simulated machine
    double rawWallSeconds = 0;
    double rawCpuSeconds = 0;
    unsigned requests = 0; // ioctls on device nodes
    unsigned commands = 0; // of these, those that the disk itself had to answer
    long peakKb = 0;       // of the largest of the runs; 0: unknown
    Cost &operator+=(const Cost &more);
};

struct Program {
    std::vector<std::string> arguments;
    // With these the program ends as soon as it has started, to measure its start.
    std::vector<std::string> startOnly;
    bool mayAskAnything = false; // ioctls that the simulated machine does not know are no mistake
};

class Lab {
public:
    // library: the simulated machine's. All files are in a directory in memory, which the destructor removes.
    explicit Lab(std::string library);
    ~Lab();
    Lab(const Lab &) = delete;
    Lab &operator=(const Lab &) = delete;

    // Path of a file in the lab's directory; write creates or replaces it.
    std::string path(const std::string &name) const { return directory_ / name; }
    std::string write(const std::string &name, const std::string &content) const;

    // Runs a program on the machine of a description file. keptState: name of the directory for files that the agent
    // keeps between runs; empty: none are kept. output: receives standard output. Throws std::runtime_error if the
    // program ends with another status than 0, or sent an ioctl that the simulated machine does not know and it may not
    // send.
    Cost measure(const Program &program, const std::string &machine, const std::string &keptState = "",
                 std::string *output = nullptr);
    // Runs a program for each line of items, atOnce at a time (xargs -P). "{}" in its arguments and in the machine's
    // path is the line.
    Cost measureEach(const Program &program, const std::string &machine, const std::string &items, int atOnce);
    // The same run for its output and its exit status alone.
    process::Finished look(const Program &program, const std::string &machine) const;
    // Number of the same run's system calls, without those of the simulated machine and with the ioctls it answered.
    long systemCalls(const Program &program, const std::string &machine, const std::string &keptState = "");
    // CPU time that preloading the machine's library adds to a program's start.
    double loadingSeconds(const Program &program);

private:
    // Adds the lines of a report; loading: what preloading the library added to each process.
    Cost costOf(const process::Finished &finished, const Program &program, const std::string &report, double loading);
    std::vector<std::string> environment(const std::string &machine, const std::string &keptState) const;
    long tracedCalls(const std::vector<std::string> &arguments, const std::vector<std::string> &environment) const;

    std::string library_;
    std::filesystem::path directory_;
    std::map<std::string, double> loading_;
};

} // namespace compare

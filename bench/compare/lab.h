// SPDX-License-Identifier: Apache-2.0
// Programs on simulated machines, and what they cost there without what the machine itself takes.
#pragma once

#include "compare/process.h"

#include <filesystem>
#include <map>
#include <string>
#include <vector>

namespace compare {

// What one run of a program, or several runs one after the other, took.
struct Cost {
    double wallSeconds = 0;
    double cpuSeconds = 0;
    unsigned requests = 0; // ioctls on device nodes
    unsigned commands = 0; // of these, those that the disk itself had to answer
    long peakKb = 0;       // of the largest of the runs; 0: not told
    Cost &operator+=(const Cost &more);
};

struct Program {
    std::vector<std::string> arguments;
    // With these the program ends as soon as it has started: what starting it costs.
    std::vector<std::string> startOnly;
};

class Lab {
public:
    // library: the simulated machine's. Everything else is made in a directory in memory, which goes with the lab.
    explicit Lab(std::string library);
    ~Lab();
    Lab(const Lab &) = delete;
    Lab &operator=(const Lab &) = delete;

    // A file of the lab's directory; write makes or replaces it.
    std::string path(const std::string &name) const { return directory_ / name; }
    std::string write(const std::string &name, const std::string &content) const;

    // Runs a program on the machine of a description file. keptState: a name under which what the agent keeps between
    // runs is found again; empty: nothing is kept. output: where to put standard output. Throws std::runtime_error when
    // the program ends with another status than 0, or asked its devices what the simulated machine does not know.
    Cost measure(const Program &program, const std::string &machine, const std::string &keptState = "",
                 std::string *output = nullptr);
    // The same run for what it tells and how it ends alone.
    Ended look(const Program &program, const std::string &machine) const;
    // The same run's system calls, those of the simulated machine taken off and its answers to ioctls put in.
    long systemCalls(const Program &program, const std::string &machine, const std::string &keptState = "");
    // CPU time that preloading the machine's library costs a program before its first instruction.
    double loadingSeconds(const Program &program);

private:
    std::vector<std::string> environment(const std::string &machine, const std::string &keptState) const;
    long tracedCalls(const std::vector<std::string> &arguments, const std::vector<std::string> &environment) const;

    std::string library_;
    std::filesystem::path directory_;
    std::map<std::string, double> loading_;
};

} // namespace compare

// SPDX-License-Identifier: Apache-2.0
#include "support/tool_process.h"

#include <unistd.h>

#include <cstdlib>
#include <stdexcept>

namespace tool::testing_support {

namespace {

process::Output streamOf(unsigned short columns)
{
    return columns == 0 ? process::Output::kept : process::Output::terminal;
}

} // namespace

std::string makeDirectory()
{
    const bool memory = access("/dev/shm", W_OK | X_OK) == 0;
    std::string pattern = std::string(memory ? "/dev/shm" : "/tmp") + "/tavstrg_test_XXXXXX";
    if (mkdtemp(pattern.data()) == nullptr) {
        throw std::runtime_error("cannot make " + pattern);
    }
    return pattern;
}

Finished runProgram(const std::vector<std::string> &words, const std::vector<std::string> &environment,
                    StandardOutput standardOutput, int signal)
{
    return process::run({.words = words, .environment = environment, .out = standardOutput}, signal);
}

Running::Running(const std::vector<std::string> &words, const std::vector<std::string> &environment,
                 unsigned short columns)
    : process_(process::Command{.words = words,
                                .environment = environment,
                                .out = streamOf(columns),
                                .err = streamOf(columns),
                                .columns = columns})
{
}

Finished Running::finish()
{
    return process_.wait(std::chrono::minutes(2));
}

Finished runOnTerminal(const std::vector<std::string> &words, const std::vector<std::string> &environment,
                       unsigned short columns)
{
    Finished finished = Running(words, environment, columns).finish();
    for (std::string *text : {&finished.out, &finished.err}) {
        for (size_t at = text->find("\r\n"); at != std::string::npos; at = text->find("\r\n", at)) {
            text->erase(at, 1);
        }
    }
    return finished;
}

int segmentsOf(pid_t creator)
{
    constexpr pid_t kYounger = 64; // the tool starts the process that asks at once, so its identifier is soon taken
    size_t count = process::segmentsOf(creator).size();
    for (pid_t child = creator + 1; child <= creator + kYounger; ++child) {
        if (kill(child, 0) != 0) { // of a process that has ended
            count += process::segmentsOf(child).size();
        }
    }
    return static_cast<int>(count);
}

} // namespace tool::testing_support

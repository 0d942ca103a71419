// SPDX-License-Identifier: Apache-2.0
#include "compare/process.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <fcntl.h>
#include <spawn.h>
#include <stdexcept>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

namespace compare {

namespace {

double seconds(const timeval &time)
{
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) * 1e-6;
}

std::vector<char *> pointersTo(const std::vector<std::string> &texts)
{
    std::vector<char *> pointers;
    for (const std::string &text : texts) {
        pointers.push_back(const_cast<char *>(text.c_str()));
    }
    pointers.push_back(nullptr);
    return pointers;
}

// posix_spawn and not fork: the child is not charged for copying the caller's address space.
pid_t spawn(const Command &command, int output)
{
    std::vector<std::string> environment = command.environment;
    for (char **entry = environ; *entry != nullptr; ++entry) {
        environment.emplace_back(*entry);
    }
    posix_spawn_file_actions_t actions;
    ::posix_spawn_file_actions_init(&actions);
    ::posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    if (output >= 0) {
        ::posix_spawn_file_actions_adddup2(&actions, output, STDOUT_FILENO);
    } else {
        ::posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
    }
    if (command.silent) {
        ::posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
    }
    pid_t child = -1;
    const int error = ::posix_spawnp(&child, command.arguments[0].c_str(), &actions, nullptr,
                                     pointersTo(command.arguments).data(), pointersTo(environment).data());
    ::posix_spawn_file_actions_destroy(&actions);
    if (error != 0) {
        throw std::runtime_error("cannot run " + command.arguments[0] + ": " + std::strerror(error));
    }
    return child;
}

std::string readAll(int descriptor)
{
    std::string text;
    std::array<char, 65536> part;
    ssize_t length = 0;
    while ((length = ::read(descriptor, part.data(), part.size())) > 0 || (length < 0 && errno == EINTR)) {
        text.append(part.data(), length > 0 ? static_cast<size_t>(length) : 0);
    }
    return text;
}

} // namespace

Ended run(const Command &command, bool keepOutput)
{
    std::array<int, 2> ends{-1, -1};
    if (keepOutput && ::pipe2(ends.data(), O_CLOEXEC) != 0) {
        throw std::runtime_error("no pipe");
    }
    const auto start = std::chrono::steady_clock::now();
    const pid_t child = spawn(command, ends[1]);
    Ended ended;
    if (keepOutput) {
        ::close(ends[1]);
        ended.output = readAll(ends[0]);
        ::close(ends[0]);
    }
    int status = 0;
    rusage used{};
    while (::wait4(child, &status, 0, &used) < 0 && errno == EINTR) {
    }
    ended.wallSeconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    ended.cpuSeconds = seconds(used.ru_utime) + seconds(used.ru_stime);
    ended.exitStatus = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    ended.peakKb = used.ru_maxrss;
    return ended;
}

double medianOf(std::vector<double> values)
{
    std::sort(values.begin(), values.end());
    const size_t n = values.size();
    return n == 0 ? 0 : n % 2 != 0 ? values[n / 2] : (values[n / 2 - 1] + values[n / 2]) / 2;
}

} // namespace compare

#include "test_process.h"

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <fstream>
#include <poll.h>
#include <sstream>

namespace tool::testing_support {
namespace {

struct Pipe {
    int ends[2] = {-1, -1};
    Pipe()
    {
        if (pipe2(ends, O_CLOEXEC) != 0)
            std::abort();
    }
    ~Pipe()
    {
        closeEnd(0);
        closeEnd(1);
    }
    Pipe(const Pipe &) = delete;
    Pipe &operator=(const Pipe &) = delete;
    void closeEnd(int which)
    {
        if (ends[which] >= 0)
            close(ends[which]);
        ends[which] = -1;
    }
};

[[noreturn]] void become(const std::vector<std::string> &words, const std::vector<std::string> &environment, int out,
                         int err)
{
    dup2(out, STDOUT_FILENO);
    dup2(err, STDERR_FILENO);
    for (const std::string &entry : environment) {
        const size_t equals = entry.find('=');
        setenv(entry.substr(0, equals).c_str(), entry.substr(equals + 1).c_str(), 1);
    }
    std::vector<char *> arguments;
    for (const std::string &word : words)
        arguments.push_back(const_cast<char *>(word.c_str()));
    arguments.push_back(nullptr);
    execv(arguments[0], arguments.data());
    _exit(127);
}

// Both at once, so that neither fills up and stops the program.
void drain(Pipe &out, Finished &finished, Pipe &err)
{
    pollfd open[2] = {{out.ends[0], POLLIN, 0}, {err.ends[0], POLLIN, 0}};
    std::string *texts[2] = {&finished.out, &finished.err};
    while (open[0].fd >= 0 || open[1].fd >= 0) {
        if (poll(open, 2, -1) < 0 && errno != EINTR)
            return;
        for (int i = 0; i < 2; ++i) {
            if (open[i].fd < 0 || open[i].revents == 0)
                continue;
            char buffer[4096];
            const ssize_t count = read(open[i].fd, buffer, sizeof buffer);
            if (count > 0)
                texts[i]->append(buffer, static_cast<size_t>(count));
            else
                open[i].fd = -1;
        }
    }
}

} // namespace

Finished runProgram(const std::vector<std::string> &words, const std::vector<std::string> &environment,
                    StandardOutput standardOutput, int signal)
{
    Pipe out;
    Pipe err;
    const int full = standardOutput == StandardOutput::full ? open("/dev/full", O_WRONLY | O_CLOEXEC) : -1;
    if (standardOutput == StandardOutput::nobody)
        out.closeEnd(0);
    Finished finished;
    finished.pid = fork();
    if (finished.pid == 0)
        become(words, environment, full >= 0 ? full : out.ends[1], err.ends[1]);
    if (signal != 0)
        kill(finished.pid, signal);
    if (full >= 0)
        close(full);
    out.closeEnd(1);
    err.closeEnd(1);
    drain(out, finished, err);
    int state = 0;
    while (waitpid(finished.pid, &state, 0) < 0 && errno == EINTR) {
    }
    if (WIFEXITED(state))
        finished.status = WEXITSTATUS(state);
    else
        finished.signal = WTERMSIG(state);
    return finished;
}

int segmentsOf(pid_t creator)
{
    std::ifstream table("/proc/sysvipc/shm");
    std::string line;
    std::getline(table, line); // key shmid perms size cpid lpid ...
    int count = 0;
    while (std::getline(table, line)) {
        std::istringstream fields(line);
        long key = 0, id = 0, permissions = 0, size = 0, madeBy = 0;
        fields >> key >> id >> permissions >> size >> madeBy;
        count += madeBy == creator ? 1 : 0;
    }
    return count;
}

} // namespace tool::testing_support

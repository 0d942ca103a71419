// SPDX-License-Identifier: Apache-2.0
#include "support/tool_process.h"

#include <fcntl.h>
#include <sys/ioctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <ctime>
#include <fstream>
#include <poll.h>
#include <sstream>

namespace tool::testing_support {
namespace {

struct Pipe {
    int ends[2] = {-1, -1};
    Pipe()
    {
        if (pipe2(ends, O_CLOEXEC) != 0) {
            std::abort();
        }
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
        if (ends[which] >= 0) {
            close(ends[which]);
        }
        ends[which] = -1;
    }
};

[[noreturn]] void become(const std::vector<std::string> &words, const std::vector<std::string> &environment, int out,
                         int err)
{
    if (out >= 0) {
        dup2(out, STDOUT_FILENO);
    } else {
        close(STDOUT_FILENO);
    }
    dup2(err, STDERR_FILENO);
    for (const std::string &entry : environment) {
        const size_t equals = entry.find('=');
        setenv(entry.substr(0, equals).c_str(), entry.substr(equals + 1).c_str(), 1);
    }
    std::vector<char *> arguments;
    for (const std::string &word : words) {
        arguments.push_back(const_cast<char *>(word.c_str()));
    }
    arguments.push_back(nullptr);
    execv(arguments[0], arguments.data());
    _exit(127);
}

// Appends what has come to one of two texts; false at the end of both. Both at once, so that neither fills up and stops
// the program.
bool readSome(pollfd (&open)[2], std::string *const (&texts)[2], int milliseconds)
{
    if (poll(open, 2, milliseconds) < 0) {
        return errno == EINTR;
    }
    for (int i = 0; i < 2; ++i) {
        if (open[i].fd < 0 || open[i].revents == 0) {
            continue;
        }
        char buffer[4096];
        const ssize_t count = read(open[i].fd, buffer, sizeof buffer);
        if (count > 0) {
            texts[i]->append(buffer, static_cast<size_t>(count));
        } else {
            open[i].fd = -1;
        } // a terminal that nobody writes to any more is an error
    }
    return open[0].fd >= 0 || open[1].fd >= 0;
}

void drain(Pipe &out, Finished &finished, Pipe &err)
{
    pollfd open[2] = {{out.ends[0], POLLIN, 0}, {err.ends[0], POLLIN, 0}};
    std::string *const texts[2] = {&finished.out, &finished.err};
    while (readSome(open, texts, -1)) {
    }
}

void waitFor(Finished &finished)
{
    int state = 0;
    while (waitpid(finished.pid, &state, 0) < 0 && errno == EINTR) {
    }
    if (WIFEXITED(state)) {
        finished.status = WEXITSTATUS(state);
    } else {
        finished.signal = WTERMSIG(state);
    }
}

// Both ends of a terminal in place of a pipe's.
void makeTerminal(Pipe &out)
{
    out.closeEnd(0);
    out.closeEnd(1);
    out.ends[0] = posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
    if (out.ends[0] < 0 || grantpt(out.ends[0]) != 0 || unlockpt(out.ends[0]) != 0) {
        std::abort();
    }
    out.ends[1] = open(ptsname(out.ends[0]), O_RDWR | O_NOCTTY | O_CLOEXEC);
}

} // namespace

std::string makeDirectory()
{
    const bool memory = access("/dev/shm", W_OK | X_OK) == 0;
    std::string pattern = std::string(memory ? "/dev/shm" : "/tmp") + "/tavstrg_test_XXXXXX";
    if (mkdtemp(pattern.data()) == nullptr) {
        std::abort();
    }
    return pattern;
}

Finished runProgram(const std::vector<std::string> &words, const std::vector<std::string> &environment,
                    StandardOutput standardOutput, int signal)
{
    Pipe out;
    Pipe err;
    const int full = standardOutput == StandardOutput::full ? open("/dev/full", O_WRONLY | O_CLOEXEC) : -1;
    if (standardOutput == StandardOutput::nobody) {
        out.closeEnd(0);
    }
    if (standardOutput == StandardOutput::terminal) {
        makeTerminal(out);
    }
    Finished finished;
    finished.pid = fork();
    if (finished.pid == 0) {
        become(words, environment,
               standardOutput == StandardOutput::closed ? -1
               : full >= 0                              ? full
                                                        : out.ends[1],
               err.ends[1]);
    }
    if (signal != 0) {
        kill(finished.pid, signal);
    }
    if (full >= 0) {
        close(full);
    }
    out.closeEnd(1);
    err.closeEnd(1);
    drain(out, finished, err);
    waitFor(finished);
    return finished;
}

struct Running::Pipes {
    Pipe out;
    Pipe err;
};

Running::Running(const std::vector<std::string> &words, const std::vector<std::string> &environment,
                 unsigned short columns)
    : pipes_(std::make_unique<Pipes>())
{
    if (columns != 0) {
        for (Pipe *terminal : {&pipes_->out, &pipes_->err}) {
            makeTerminal(*terminal);
            const winsize size = {24, columns, 0, 0};
            ioctl(terminal->ends[1], TIOCSWINSZ, &size);
        }
    }
    finished_.pid = fork();
    if (finished_.pid == 0) {
        become(words, environment, pipes_->out.ends[1], pipes_->err.ends[1]);
    }
    pipes_->out.closeEnd(1);
    pipes_->err.closeEnd(1);
}

Running::~Running()
{
    if (!waited_) {
        send(SIGKILL);
        finish();
    }
}

bool Running::readMore(int milliseconds)
{
    pollfd open[2] = {{pipes_->out.ends[0], POLLIN, 0}, {pipes_->err.ends[0], POLLIN, 0}};
    std::string *const texts[2] = {&finished_.out, &finished_.err};
    return readSome(open, texts, milliseconds);
}

bool Running::says(const std::string &text)
{
    const auto said = [&] {
        return finished_.out.find(text) != std::string::npos || finished_.err.find(text) != std::string::npos;
    };
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(30);
    while (!said() && std::chrono::steady_clock::now() < end) {
        if (!readMore(1000)) {
            return said();
        }
    }
    return said();
}

void Running::send(int signal) const
{
    kill(finished_.pid, signal);
}

void Running::stopReading()
{
    pipes_->out.closeEnd(0);
}

Finished Running::finish()
{
    while (readMore(-1)) {
    }
    waitFor(finished_);
    waited_ = true;
    return finished_;
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

namespace {

// Segments that are older belong to a killed process that had the same identifier once.
const std::time_t begun = std::time(nullptr);

} // namespace

int segmentsOf(pid_t process)
{
    constexpr pid_t kYounger = 64; // the tool starts the process that asks at once, so its identifier is soon taken
    std::ifstream table("/proc/sysvipc/shm");
    std::string line;
    std::getline(table, line); // key shmid perms size cpid lpid nattch uid gid cuid cgid atime dtime ctime ...
    int count = 0;
    while (std::getline(table, line)) {
        std::istringstream fields(line);
        long key = 0, id = 0, permissions = 0, size = 0, other = 0;
        pid_t madeBy = 0;
        fields >> key >> id >> permissions >> size >> madeBy;
        for (int i = 0; i < 8; ++i) {
            fields >> other;
        }
        std::time_t made = 0;
        fields >> made;
        const bool its =
            madeBy == process || (madeBy > process && madeBy <= process + kYounger && kill(madeBy, 0) != 0);
        count += its && made >= begun ? 1 : 0;
    }
    return count;
}

} // namespace tool::testing_support

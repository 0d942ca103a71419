// SPDX-License-Identifier: Apache-2.0
#include "tavstrg/supervise.h"

#include "tavstrg/ending_signals.h"
#include "tavstrg/failure.h"
#include "tavstrg/progress.h"
#include "tavstrg/segments.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/signalfd.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <exception>
#include <string_view>

namespace tool {
namespace {

constexpr std::chrono::milliseconds kDying{
    200}; // for the end of a killed process; one that hangs in a disk takes longer

class Descriptor {
public:
    explicit Descriptor(int descriptor) : descriptor_(descriptor) {}
    ~Descriptor() { close(); }
    Descriptor(const Descriptor &) = delete;
    Descriptor &operator=(const Descriptor &) = delete;
    int get() const { return descriptor_; }
    void close()
    {
        if (descriptor_ >= 0) {
            ::close(descriptor_);
        }
        descriptor_ = -1;
    }

private:
    int descriptor_;
};

// An outcome on its way through a pipe: this head, then both texts.
struct Head {
    int status;
    int cimStatus;
    size_t output;
    size_t error;
};

void send(int pipe, const Outcome &outcome)
{
    const Head head = {outcome.status, outcome.cimStatus, outcome.output.size(), outcome.error.size()};
    std::string bytes(reinterpret_cast<const char *>(&head), sizeof head);
    bytes += outcome.output + outcome.error;
    for (std::string_view rest = bytes; !rest.empty();) {
        const ssize_t count = write(pipe, rest.data(), rest.size());
        if (count < 0 && errno != EINTR) {
            return; // the parent process is gone
        }
        rest.remove_prefix(count > 0 ? static_cast<size_t>(count) : 0);
    }
}

bool takeOutcome(std::string_view bytes, Outcome &outcome)
{
    Head head{};
    if (bytes.size() < sizeof head) {
        return false;
    }
    std::memcpy(&head, bytes.data(), sizeof head);
    bytes.remove_prefix(sizeof head);
    if (bytes.size() != head.output + head.error) {
        return false;
    }
    outcome.status = head.status;
    outcome.cimStatus = head.cimStatus;
    outcome.output = bytes.substr(0, head.output);
    outcome.error = bytes.substr(head.output);
    return true;
}

[[noreturn]] void workAndExit(const std::function<Outcome()> &work, int pipe, pid_t parent)
{
    prctl(PR_SET_PDEATHSIG, SIGKILL); // if the parent process is killed
    if (getppid() != parent) {
        _exit(kFailed);
    }
    Outcome outcome;
    try {
        outcome = work();
    } catch (const Failure &failure) {
        outcome = {kFailed, "", failure.what(), failure.cimStatus()};
    } catch (const std::exception &error) { // out of memory and the like
        outcome = {kFailed, "", error.what(), 0};
    }
    send(pipe, outcome);
    std::exit(0);
}

class Child {
public:
    Child(const std::function<Outcome()> &work, int readEnd, int writeEnd)
    {
        const pid_t parent = getpid();
        process_ = fork();
        if (process_ == 0) {
            close(readEnd);
            workAndExit(work, writeEnd, parent);
        }
        if (process_ < 0) {
            throw Failure(std::string("cannot start a process: ") + std::strerror(errno));
        }
    }
    // Kills it if it still runs.
    ~Child()
    {
        kill(process_, SIGKILL);
        waitFor(kDying);
        removeSegmentsOf(process_, begun_);
        waitpid(process_, nullptr, WNOHANG);
    }
    Child(const Child &) = delete;
    Child &operator=(const Child &) = delete;

    void pass(int signal) const { kill(process_, signal); }

    // Whether it has ended in time. It stays a zombie, so that its identifier is not used again before its segments are
    // looked for.
    bool waitFor(std::chrono::milliseconds time)
    {
        const auto end = std::chrono::steady_clock::now() + time;
        for (;;) {
            siginfo_t info{};
            if (waitid(P_PID, static_cast<id_t>(process_), &info, WEXITED | WNOHANG | WNOWAIT) == 0 &&
                info.si_pid == process_) {
                signal_ = info.si_code == CLD_EXITED ? 0 : info.si_status;
                return true;
            }
            if (std::chrono::steady_clock::now() >= end) {
                return false;
            }
            usleep(2000);
        }
    }
    int endedBy() const { return signal_; }

private:
    time_t begun_ = std::time(nullptr);
    pid_t process_ = -1;
    int signal_ = 0;
};

// The signal that waits to be delivered; 0 for none. It keeps waiting.
int pendingSignal()
{
    sigset_t pending;
    sigpending(&pending);
    for (const int signal : kEndingSignals) {
        if (sigismember(&pending, signal) == 1) {
            return signal;
        }
    }
    return 0;
}

void discardSignals(int descriptor)
{
    signalfd_siginfo info{};
    while (read(descriptor, &info, sizeof info) > 0) {
    }
}

int signalDescriptor()
{
    const sigset_t ending = endingSignals();
    return signalfd(-1, &ending, SFD_CLOEXEC | SFD_NONBLOCK);
}

// Adds what comes through the pipe to bytes. True at its end; false at a signal if "interruptible", and when the time
// is over.
bool readAll(int pipe, int signals, bool interruptible, std::chrono::milliseconds time, std::string &bytes)
{
    const auto end = std::chrono::steady_clock::now() + time;
    for (;;) {
        const auto left =
            std::chrono::duration_cast<std::chrono::milliseconds>(end - std::chrono::steady_clock::now()).count();
        pollfd waits[2] = {{pipe, POLLIN, 0}, {interruptible ? signals : -1, POLLIN, 0}};
        const int ready = poll(waits, 2, interruptible ? -1 : static_cast<int>(left > 0 ? left : 0));
        if (ready == 0 || (ready > 0 && waits[1].revents != 0)) {
            return false;
        }
        char buffer[65536];
        const ssize_t count = ready > 0 ? read(pipe, buffer, sizeof buffer) : 1;
        if (count <= 0) {
            return true;
        }
        bytes.append(buffer, ready > 0 ? static_cast<size_t>(count) : 0);
    }
}

std::string crashText(int signal)
{
    return "the process that asked ended by signal " + std::to_string(signal) + " (" + strsignal(signal) + ")";
}

} // namespace

Outcome supervised(const std::function<Outcome()> &work, Ending ending, bool showProgress)
{
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) {
        throw Failure(std::string("no pipe: ") + std::strerror(errno));
    }
    const Descriptor readEnd(ends[0]);
    Descriptor writeEnd(ends[1]);
    const Descriptor signals(signalDescriptor());
    std::fflush(nullptr);
    Child child(work, readEnd.get(), writeEnd.get());
    writeEnd.close();
    const Progress progress(showProgress && isatty(STDERR_FILENO) == 1);

    std::string bytes;
    Outcome outcome{kFailed, "", "", 0};
    if (!readAll(readEnd.get(), signals.get(), true, {}, bytes)) {
        if (ending == Ending::atOnce) {
            return outcome;
        }
        child.pass(pendingSignal());
        const bool finished = readAll(readEnd.get(), signals.get(), false, kGrace, bytes);
        if (finished && takeOutcome(bytes, outcome) && outcome.status == kDone) {
            discardSignals(signals.get());
        }
        return outcome;
    }
    if (!takeOutcome(bytes, outcome)) {
        child.waitFor(kDying);
        outcome.error = crashText(child.endedBy());
    }
    child.waitFor(kGrace);
    return outcome;
}

} // namespace tool

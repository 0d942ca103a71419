// SPDX-License-Identifier: Apache-2.0
#include "tavstrg/watch.h"

#include "tavstrg/alert.h"
#include "tavstrg/alert_pipe.h"
#include "tavstrg/ask.h"
#include "tavstrg/failure.h"
#include "tavstrg/json.h"
#include "tavstrg/machine_follower.h"
#include "tavstrg/session.h"
#include "tavstrg/terminal.h"
#include "tavstrg/wrap.h"

#include <dlfcn.h>
#include <poll.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>

namespace tool {
namespace {

constexpr const char *kThread = "TAV_StorageThread";
constexpr const char *kConfig = "TAV_StorageConfig";
constexpr const char *kAlertLibrary = "/opt/qlm/tavkit_sa/lib/libtavalert.so";
constexpr int kBetweenLooks = 200; // milliseconds between two looks at the machine's file

// Signals that end the watch, as something to wait on. The session keeps them from ending the tool.
class EndingSignals {
public:
    EndingSignals()
    {
        sigset_t ending;
        sigemptyset(&ending);
        for (const int signal : {SIGHUP, SIGINT, SIGTERM}) {
            sigaddset(&ending, signal);
        }
        descriptor_ = signalfd(-1, &ending, SFD_CLOEXEC | SFD_NONBLOCK);
        if (descriptor_ < 0) {
            throw Failure(std::string("no signals: ") + std::strerror(errno));
        }
        std::signal(SIGPIPE, SIG_IGN); // a reader that goes away is met where it is written to
    }
    ~EndingSignals() { close(descriptor_); }
    EndingSignals(const EndingSignals &) = delete;
    EndingSignals &operator=(const EndingSignals &) = delete;

    int descriptor() const { return descriptor_; }
    void take() const
    {
        signalfd_siginfo info{};
        while (read(descriptor_, &info, sizeof info) > 0) {
        }
    }

private:
    int descriptor_;
};

// For people, apart from the alerts. With JSON, notes are documents too.
void note(const Arguments &arguments, const std::string &text)
{
    const std::string line = arguments.json ? noteJson(commandName(Command::watch), text)
                                            : fitted("tavstrg: " + text + "\n", widthOf(STDERR_FILENO));
    std::fputs(line.c_str(), stderr);
}

std::string outputProblem()
{
    return std::string("standard output: ") + std::strerror(errno);
}

// An ending signal also ends the waiting for a reader that does not read. Throws Failure when nothing can be written.
void print(const std::string &text, const EndingSignals &signals)
{
    for (size_t written = 0; written < text.size();) {
        pollfd waits[2] = {{STDOUT_FILENO, POLLOUT, 0}, {signals.descriptor(), POLLIN, 0}};
        if (poll(waits, 2, -1) < 0) {
            continue;
        } // interrupted
        if (waits[0].revents == 0) {
            return;
        }
        const ssize_t count = write(STDOUT_FILENO, text.data() + written, text.size() - written);
        if (count < 0 && errno != EINTR && errno != EAGAIN) {
            throw Failure(outputProblem());
        }
        written += count > 0 ? static_cast<size_t>(count) : 0;
    }
}

void invoke(Session &session, const char *className, const char *method,
            const std::vector<broker::NamedValue> &arguments = {})
{
    const broker::Reply reply = session.broker().invokeMethod(className, method, arguments);
    if (const int status = statusOf(reply); status != 0) {
        throw Failure(failureText(std::string(className) + "." + method, status, reply.message), status);
    }
}

// The configuration has only methods, and in service mode none before the thread runs, whose first sleep already has
// the cycle. So the cycle is set without service mode, and found again in what is saved then.
void setCycle(Session &session, int cycle)
{
    invoke(session, kConfig, "SetMonitorCycle", {{"MonitorCycle", broker::Value::text(std::to_string(cycle))}});
    session.reload(true);
}

// On the real machine the alert library is the agent's, unless the development library was put in its place.
void tellWhereAlertsGo(const Arguments &arguments)
{
    void *library = dlopen(kAlertLibrary, RTLD_LAZY | RTLD_NOLOAD);
    if (library == nullptr) {
        throw Failure(std::string("no alert library: ") + kAlertLibrary +
                      " could not be loaded, so no alert would go out");
    }
    if (dlsym(library, "TavAlertTakesFile") == nullptr) {
        note(arguments, std::string("alerts go to this machine's agent (") + kAlertLibrary + "), not to this terminal");
    }
    dlclose(library);
}

void tellBeginning(Session &session, const Arguments &arguments)
{
    const std::string machine =
        arguments.machine.empty()
            ? "this machine"
            : "the simulated machine " + std::filesystem::path(arguments.machine).filename().string();
    const int64_t cycle = numberOf(askOne(session.broker(), kConfig, nullptr), "MonitorCycle");
    note(arguments, "watching " + machine + ", a pass every " + std::to_string(cycle) + " s, until Ctrl-C");
}

// A description that is no good leaves the machine as it was.
void follow(MachineFollower &follower, Session &session, const Arguments &arguments)
{
    const auto change = follower.look();
    if (!change) {
        return;
    }
    std::string problem = change->problem;
    try {
        if (problem.empty()) {
            session.changeMachine(change->text);
        }
    } catch (const Failure &failure) {
        problem = failure.what();
    }
    note(arguments, problem.empty() ? arguments.machine + ": read again" : problem + "; the machine stays as it was");
}

class Watch {
public:
    Watch(const Arguments &arguments, bool colour, Surroundings &surroundings)
        : arguments_(arguments), colour_(colour), surroundings_(surroundings), follower_(arguments.machine)
    {
    }

    void run()
    {
        Session session(surroundings_, arguments_, arguments_.cycle == 0);
        const EndingSignals signals;
        if (arguments_.cycle != 0) {
            setCycle(session, arguments_.cycle);
        }
        invoke(session, kThread, "StartMonitoringThread");
        if (arguments_.machine.empty()) {
            tellWhereAlertsGo(arguments_);
        }
        tellBeginning(session, arguments_);
        const std::string problem = untilEnded(session, signals);
        invoke(session, kThread, "StopMonitoringThread");
        if (!problem.empty()) {
            throw Failure(problem);
        }
        printAlerts(signals); // of the pass that was under way
        signals.take();
    }

private:
    // Empty when a signal ended it, else why it cannot go on.
    std::string untilEnded(Session &session, const EndingSignals &signals)
    try {
        // Standard output is waited on for nothing but the end of its reader.
        pollfd waits[3] = {{alerts_.descriptor(), POLLIN, 0}, {signals.descriptor(), POLLIN, 0}, {STDOUT_FILENO, 0, 0}};
        while (waits[1].revents == 0) {
            const int ready = poll(waits, 3, arguments_.machine.empty() ? -1 : kBetweenLooks);
            if (ready < 0) {
                continue;
            } // interrupted
            printAlerts(signals);
            if (waits[2].revents != 0) {
                throw Failure(std::string("standard output: ") + std::strerror(EPIPE));
            }
            if (ready == 0) // looks that follow an alert at once would find no editor at work
            {
                follow(follower_, session, arguments_);
            }
        }
        return "";
    } catch (const Failure &failure) {
        return failure.what();
    }

    void printAlerts(const EndingSignals &signals)
    {
        for (const std::string &line : alerts_.lines()) {
            const std::optional<Alert> alert = parseAlert(line);
            if (!alert) {
                note(arguments_, "an alert that is not understood: " + line);
            } else {
                print(arguments_.json ? alertJson(*alert) : alertText(*alert, colour_, widthOf(STDOUT_FILENO)),
                      signals);
            }
        }
    }

    const Arguments &arguments_;
    bool colour_;
    Surroundings &surroundings_;
    AlertPipe alerts_;
    MachineFollower follower_;
};

} // namespace

Outcome watch(const Arguments &arguments, const TextStyle &style, Surroundings &surroundings)
{
    if (write(STDOUT_FILENO, "", 0) < 0) {
        throw Failure(outputProblem());
    }
    Watch(arguments, style.colour, surroundings).run();
    return {};
}

} // namespace tool

// SPDX-License-Identifier: Apache-2.0
#include "tavstrg/watch.h"

#include "tavstrg/agent_paths.h"
#include "tavstrg/alert.h"
#include "tavstrg/alert_pipe.h"
#include "tavstrg/ask.h"
#include "tavstrg/changes.h"
#include "tavstrg/collection.h"
#include "tavstrg/ending_signals.h"
#include "tavstrg/failure.h"
#include "tavstrg/health.h"
#include "tavstrg/json.h"
#include "tavstrg/machine_follower.h"
#include "tavstrg/session.h"
#include "tavstrg/terminal.h"
#include "tavstrg/trace_capture.h"
#include "tavstrg/words.h"
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
constexpr int kBetweenLooks = 200;         // milliseconds between two looks at the machine's file
constexpr int kBetweenCleanups = 60000;    // milliseconds
constexpr int kTries = 5;                  // to find the device of an alert
constexpr unsigned kBetweenTries = 100000; // microseconds

// Signals that end the watch, as a descriptor to wait on. The session blocks them.
class EndingSignals {
public:
    EndingSignals()
    {
        const sigset_t ending = endingSignals();
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

// Information for people, on standard error. With JSON, notes are documents too.
void note(const Arguments &arguments, const std::string &text)
{
    // With names of files and fields of the machine's description in it.
    const std::string line = arguments.json ? noteJson(commandName(Command::watch), text)
                                            : fitted("tavstrg: " + printable(text) + "\n", widthOf(STDERR_FILENO));
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

// In service mode the configuration's methods are refused until the thread runs, and the thread's first sleep already
// has the cycle. So the cycle is set without service mode and read again from the saved state.
void setCycle(Session &session, int cycle)
{
    invoke(session, kConfig, "SetMonitorCycle", {{"MonitorCycle", broker::Value::text(std::to_string(cycle))}});
    session.reload(true);
}

// On the real machine the alert library is the agent's, unless the development library was put in its place.
void noteWhereAlertsGo(const Arguments &arguments)
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

void noteBeginning(Session &session, const Arguments &arguments)
{
    const std::string machine =
        arguments.machine.empty()
            ? "this machine"
            : "the simulated machine " + std::filesystem::path(arguments.machine).filename().string();
    const int64_t cycle = numberOf(askOne(session.broker(), kConfig, nullptr), "MonitorCycle");
    note(arguments, "watching " + machine + ", a pass every " + std::to_string(cycle) + " s, until Ctrl-C");
}

// A description with a mistake leaves the machine as it was.
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
        const TraceListener listener([this](const TraceLine &line) { readings_.take(line); });
        Session session(surroundings_, arguments_, arguments_.cycle == 0);
        const EndingSignals signals;
        if (arguments_.cycle != 0) {
            setCycle(session, arguments_.cycle);
        }
        invoke(session, kThread, "StartMonitoringThread");
        if (arguments_.machine.empty()) {
            noteWhereAlertsGo(arguments_);
        }
        noteBeginning(session, arguments_);
        lookAt(session);
        const std::string problem = untilEnded(session, signals);
        invoke(session, kThread, "StopMonitoringThread");
        if (!problem.empty()) {
            throw Failure(problem);
        }
        printAlerts(nullptr, signals); // of the pass that was under way
        signals.take();
    }

private:
    // Empty when a signal ended it, else why it cannot go on.
    std::string untilEnded(Session &session, const EndingSignals &signals)
    try {
        // Standard output is waited on for nothing but the end of its reader.
        pollfd waits[3] = {{alerts_.descriptor(), POLLIN, 0}, {signals.descriptor(), POLLIN, 0}, {STDOUT_FILENO, 0, 0}};
        while (waits[1].revents == 0) {
            const bool looks = !arguments_.machine.empty() || !healthNoted_;
            const int ready = poll(waits, 3, looks ? kBetweenLooks : kBetweenCleanups);
            if (ready < 0) {
                continue;
            } // interrupted
            printAlerts(&session, signals);
            noteHealth(session);
            TraceCapture::forget(); // or the trace of every pass would stay in memory
            if (waits[2].revents != 0) {
                throw Failure(std::string("standard output: ") + std::strerror(EPIPE));
            }
            if (ready == 0 && !arguments_.machine.empty()) // not right after an alert: an editor may be at work
            {
                follow(follower_, session, arguments_);
            }
        }
        return "";
    } catch (const Failure &failure) {
        return failure.what();
    }

    // The inventory as the provider has it now; false when it cannot be had, during a stop for instance.
    bool lookAt(Session &session)
    try {
        inventory_ = publishedInventory(session, readings_);
        return true;
    } catch (const Failure &) {
        return false;
    }

    // An alert goes out before the pass has stored what it found, so the device may take a moment to be there.
    void addDetails(Session &session, Alert &alert)
    {
        if (isConfigurationChange(alert)) {
            const std::optional<Inventory> before = inventory_;
            if (lookAt(session) && before) {
                alert.changes = changesBetween(*before, *inventory_);
            }
            return;
        }
        for (int tries = 0; isAboutADisk(alert) && tries < kTries; ++tries) {
            Inventory now;
            try {
                now = publishedInventory(session, readings_);
            } catch (const Failure &) {
                return;
            }
            if (addDevice(alert, now)) {
                return;
            }
            usleep(kBetweenTries);
        }
    }

    // Once, after the first pass: the state of the disks that no alert will speak of.
    void noteHealth(Session &session)
    {
        if (healthNoted_ || readings_.passes() == 0) {
            return;
        }
        healthNoted_ = true;
        try {
            const Inventory now = publishedInventory(session, readings_);
            for (const HealthItem &item : healthItems(healthOf(now))) {
                note(arguments_, item.text);
            }
        } catch (const Failure &) { // the alerts will say more
        }
    }

    // session is null where nothing more can be asked.
    void printAlerts(Session *session, const EndingSignals &signals)
    {
        for (const std::string &line : alerts_.lines()) {
            std::optional<Alert> alert = parseAlert(line);
            if (!alert) {
                note(arguments_, "an alert that is not understood: " + line);
            } else {
                if (session != nullptr) {
                    addDetails(*session, *alert);
                }
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
    SmartReadings readings_;
    std::optional<Inventory> inventory_; // before the next configuration change
    bool healthNoted_ = false;
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

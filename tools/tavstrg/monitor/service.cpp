// SPDX-License-Identifier: Apache-2.0
#include "tavstrg/monitor/service.h"

#include "tavstrg/disks.h"
#include "tavstrg/failure.h"
#include "tavstrg/machine_file.h"
#include "tavstrg/output_file.h"
#include "tavstrg/words.h"

#include "runtime/progress.h"

#include <poll.h>
#include <sys/inotify.h>
#include <sys/signalfd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <climits>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <span>
#include <sstream>
#include <utility>

namespace tool::monitor {
namespace {

using tavstrg::disks::Array;
using tavstrg::disks::Event;
using tavstrg::disks::FindResult;

constexpr int64_t kMsPerSecond = 1000;
// A pass that has found nothing new is saved at last after this time. Saving each pass would keep the disk awake on
// which the state is.
constexpr int64_t kSaveEveryMs = int64_t{3600} * kMsPerSecond;

int64_t nowMs()
{
    return std::chrono::duration_cast<std::chrono::milliseconds>(tavstrg::ProgressClock::now().time_since_epoch())
        .count();
}

int64_t clockNow()
{
    return static_cast<int64_t>(std::time(nullptr));
}

std::string selfPath()
{
    std::error_code error;
    const std::filesystem::path path = std::filesystem::read_symlink("/proc/self/exe", error);
    return error ? "/usr/sbin/tavstrg" : path.string();
}

Programs::Command agentCommand(const Frame &frame)
{
    Programs::Command command{{selfPath()}};
    if (!frame.machineFile.empty()) {
        command.words.insert(command.words.end(), {"--machine", frame.machineFile});
    }
    command.words.insert(command.words.end(), {"monitor", "--send-event"});
    return command;
}

int signalDescriptor()
{
    sigset_t taken;
    sigemptyset(&taken);
    for (const int signal : {SIGHUP, SIGINT, SIGTERM, SIGCHLD}) {
        sigaddset(&taken, signal);
    }
    pthread_sigmask(SIG_BLOCK, &taken, nullptr);
    std::signal(SIGPIPE, SIG_IGN);
    std::signal(SIGXFSZ, SIG_IGN); // a limit is met where it is written
    const int descriptor = signalfd(-1, &taken, SFD_CLOEXEC | SFD_NONBLOCK);
    if (descriptor < 0) {
        throw Failure(std::string("no signals: ") + std::strerror(errno));
    }
    return descriptor;
}

// Editors write a new file and rename it: so its directory is watched.
int followMachine(const std::string &file)
{
    if (file.empty()) {
        return -1;
    }
    const int descriptor = inotify_init1(IN_CLOEXEC | IN_NONBLOCK);
    const std::string directory = std::filesystem::path(file).parent_path().string();
    inotify_add_watch(descriptor, directory.c_str(), IN_CLOSE_WRITE | IN_MOVED_TO);
    return descriptor;
}

std::string monotonicMicroseconds()
{
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return std::to_string(int64_t{now.tv_sec} * 1000000 + now.tv_nsec / 1000);
}

// The default directory is there where a node exporter is installed.
bool isMetricsWanted(const std::string &path)
{
    std::error_code error;
    return !path.empty() && (path != Config{}.metrics ||
                             std::filesystem::is_directory(std::filesystem::path(path).parent_path(), error));
}

// A file that is no longer written would keep its old values in the node exporter for ever.
void removeMetrics(const std::string &path)
{
    struct stat info = {};
    if (!path.empty() && lstat(path.c_str(), &info) == 0 && S_ISREG(info.st_mode)) {
        unlink(path.c_str());
    }
}

// What is to be done about a file that cannot be written.
std::string metricsHint(const std::string &path)
{
    const std::string directory = std::filesystem::path(path).parent_path().string();
    return access(directory.c_str(), W_OK) != 0 && errno == EROFS
               ? "; if the node exporter was installed after the service was started, restart the service"
               : "";
}

} // namespace

int pollTimeout(int64_t now, std::initializer_list<std::optional<int64_t>> times)
{
    std::optional<int64_t> first;
    for (const std::optional<int64_t> &time : times) {
        if (time) {
            first = std::min(first.value_or(*time), *time);
        }
    }
    return first ? static_cast<int>(std::clamp<int64_t>(*first - now, 0, INT_MAX)) : -1;
}

std::string statusLine(const Standing &standing)
{
    std::string line;
    for (const std::string &problem : standing.problems) {
        line += problem.substr(0, problem.find('\n')) + "; ";
    }
    if (standing.disks.empty()) {
        return line + (standing.success ? "" : "no pass has succeeded yet");
    }
    char pass[80];
    std::snprintf(pass, sizeof pass, "; the last pass %s %.1f s", standing.success ? "took" : "failed after",
                  standing.seconds);
    line += standing.disks + pass;
    return standing.waiting == 0 ? line : line + "; " + counted(standing.waiting, "event") + " to be delivered";
}

Service::Service(Frame frame, Config config)
    : frame_(std::move(frame)), config_(std::move(config)), directory_(config_.state), file_(config_.state),
      deliveries_(state_, file_, agentCommand(frame_),
                  [this](const std::string &subject, const std::string &text) { say(subject, text); }),
      wake_(nowMs(), 0)
{
    signals_ = signalDescriptor();
    machine_ = followMachine(frame_.machineFile);
}

Service::~Service()
{
    for (const int descriptor : {signals_, machine_}) {
        if (descriptor >= 0) {
            close(descriptor);
        }
    }
}

void Service::say(const std::string &subject, const std::string &text)
{
    std::string &said = said_[subject];
    if (said == text) {
        return;
    }
    said = text;
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
        std::fputs(("tavstrg: " + printable(line) + "\n").c_str(), stderr);
    }
}

Standing Service::standing() const
{
    Standing standing;
    standing.disks = summary_;
    standing.success = figures_.success;
    standing.seconds = figures_.seconds.value_or(0);
    standing.waiting = deliveries_.open();
    for (const auto &[subject, text] : said_) {
        if (!text.empty()) {
            standing.problems.push_back(text);
        }
    }
    return standing;
}

void Service::tellStatus()
{
    manager_.say("STATUS=" + printable(status()));
}

void Service::feed(int64_t now)
{
    const std::optional<int64_t> every = manager_.feedEveryMs();
    if (every && (fed_ == 0 || now - fed_ >= std::min(*every, kMsPerSecond))) {
        fed_ = now;
        manager_.say("WATCHDOG=1");
    }
}

void Service::begin()
{
    say("state", file_.read(state_));
    savedStanding_ = standingOf(state_.book);
    savedAt_ = nowMs();
    isSaved_ = true;
    deliveries_.configure(config_);
    if (deliveries_.open() != 0) {
        save(true, savedAt_); // letters are noted in a file that this process has saved
    }
    if (const int error = uevents_.open(); error != 0) {
        say("uevents", std::string("disks that come and go are seen at the next cycle: uevents are not received: ") +
                           std::strerror(error));
    }
    manager_.say("READY=1\nSTATUS=The first pass begins");
}

bool Service::run()
{
    begin();
    loop();
    manager_.say("STOPPING=1");
    pass_.abandon();
    deliveries_.stop();
    if (!isSaved_) {
        save(true, nowMs());
    }
    return figures_.success;
}

bool Service::isFinished() const
{
    return stopping_ || (frame_.once && passed_ && !pass_.isRunning() && deliveries_.isSettled());
}

void Service::loop()
{
    while (!isFinished()) {
        const int64_t now = nowMs();
        if (!pass_.isRunning() && wake_.left(now) == 0 && !(frame_.once && passed_)) {
            startPass(now);
        }
        if (pass_.isRunning() && now - passBegan_ >= kLongestPassMs) {
            pass_.abandon();
            say("pass", "a pass was given up: it did not end within " +
                            counted(static_cast<size_t>(kLongestPassMs / kMsPerSecond), "second"));
            endPass(false, now);
        }
        deliveries_.deliver(now);
        feed(now);
        if (!isFinished()) {
            wait(now);
        }
    }
}

// Until something happens or is due.
void Service::wait(int64_t now)
{
    const bool running = pass_.isRunning();
    const std::optional<int64_t> every = manager_.feedEveryMs();
    const int timeout = pollTimeout(now, {running ? passBegan_ + kLongestPassMs : now + wake_.left(now),
                                          every ? std::optional(fed_ + *every) : std::nullopt, deliveries_.wakeAt()});
    pollfd waits[] = {{signals_, POLLIN, 0},
                      {uevents_.descriptor(), POLLIN, 0},
                      {pass_.descriptor(), POLLIN, 0},
                      {machine_, POLLIN, 0}};
    if (poll(waits, std::size(waits), timeout) <= 0) {
        return;
    }
    const int64_t then = nowMs();
    if (waits[0].revents != 0) {
        takeSignals();
    }
    if (waits[1].revents != 0) {
        takeUevents(then);
    }
    if (waits[2].revents != 0) {
        takePass(then);
    }
    if (waits[3].revents != 0) {
        takeMachine();
    }
}

void Service::takeSignals()
{
    signalfd_siginfo info{};
    while (read(signals_, &info, sizeof info) == static_cast<ssize_t>(sizeof info)) {
        const int signal = static_cast<int>(info.ssi_signo);
        if (signal == SIGCHLD) {
            pass_.reap();
        } else if (signal == SIGHUP) {
            reload();
        } else {
            stopping_ = true;
        }
    }
}

void Service::takeUevents(int64_t now)
{
    bool called = false;
    if (const int error = uevents_.take(called); error != 0) {
        say("uevents", std::string("uevents are no longer received: ") + std::strerror(error));
    }
    if (called) {
        wake_.event(now);
    }
}

void Service::takeMachine()
{
    char buffer[4096];
    bool changed = false;
    while (machine_ >= 0 && read(machine_, buffer, sizeof buffer) > 0) { // which file it was does not matter
        changed = true;
    }
    if (!changed) {
        return;
    }
    try {
        frame_.changeMachine(readMachineFile(frame_.machineFile));
        say("machine", "");
    } catch (const Failure &failure) { // half of it, as editors do
        say("machine", failure.what());
    }
}

// A pass at once shows what the new configuration does.
void Service::reload()
{
    manager_.say("RELOADING=1\nMONOTONIC_USEC=" + monotonicMicroseconds());
    const ParsedConfig parsed = readConfig(frame_.configFile, frame_.configMustExist);
    if (!parsed.problems.empty()) {
        say("configuration", problemLines(frame_.configFile, parsed.problems) + "\nThe configuration stays as it was");
    } else if (parsed.config.state != config_.state) {
        say("configuration", frame_.configFile + ": state is another directory, which needs a restart; "
                                                 "the configuration stays as it was");
    } else {
        say("configuration", "");
        if (parsed.config.metrics != config_.metrics) {
            removeMetrics(config_.metrics);
        }
        config_ = parsed.config;
        deliveries_.configure(config_);
    }
    wake_ = tavstrg::WakeTime(nowMs(), 0);
    manager_.say("READY=1");
    tellStatus();
}

void Service::startPass(int64_t now)
{
    takeMachine(); // which a signal after the change of the file may have overtaken
    wake_ = tavstrg::WakeTime(now, int64_t{config_.cycle} * kMsPerSecond);
    passBegan_ = now;
    if (!uevents_.isOpen()) {
        say("uevents", uevents_.open() == 0 ? "" : said_["uevents"]);
    }
    if (const int error = pass_.start(directory_.descriptor()); error != 0) {
        say("pass", error == EBUSY ? "no pass: processes of " + std::to_string(kMostLingering) +
                                         " earlier passes still hang in commands to disks"
                                   : std::string("no process for a pass: ") + std::strerror(error));
        endPass(false, now);
    }
}

void Service::takePass(int64_t now)
{
    switch (pass_.take()) {
    case PassProcess::Progress::running:
        return;
    case PassProcess::Progress::failed:
        say("pass", pass_.result() == FindResult::notReadable ? "no disk can be seen: /sys/block cannot be read"
                                                              : "a pass failed: its process ended");
        endPass(false, now);
        return;
    case PassProcess::Progress::done:
        break;
    }
    enterDisks();
    endPass(true, now);
}

// What the pass has found into the book, its events to the routes.
void Service::enterDisks()
{
    Array<Event> events;
    if (!enterPass(state_.book, pass_.disks(), clockNow(), events)) {
        throw Failure("not enough memory for what a pass has found");
    }
    std::swap(disks_, pass_.disks());
    summary_ = healthSummary({disks_.begin(), disks_.end()});
    givenUp_ += addReports(state_, events, deliveries_.wanted());
    if (givenUp_ != 0) {
        say("given up", counted(givenUp_, "event") + " could not be delivered in time and were given up");
    }
    say("pass", "");
    save(!events.empty() || isUnsaved_, nowMs());
}

void Service::endPass(bool success, int64_t now)
{
    figures_.success = success;
    figures_.seconds = static_cast<double>(now - passBegan_) / static_cast<double>(kMsPerSecond);
    if (success) {
        figures_.lastSuccess.set(clockNow());
    }
    passed_ = true;
    writeMetrics();
    deliveries_.deliver(now);
    tellStatus();
}

void Service::save(bool always, int64_t now)
{
    const uint64_t standing = standingOf(state_.book);
    if (!always && standing == savedStanding_ && now - savedAt_ < kSaveEveryMs) {
        isSaved_ = false;
        return;
    }
    const int error = file_.save(state_);
    isUnsaved_ = error != 0;
    isSaved_ = error == 0;
    say("saving", error == 0 ? ""
                             : config_.state + " cannot be written: " + std::strerror(error) +
                                   "; after a restart events may be repeated");
    savedStanding_ = standing;
    savedAt_ = now;
}

void Service::writeMetrics()
{
    if (!isMetricsWanted(config_.metrics)) {
        say("metrics", "");
        return;
    }
    try {
        const std::span<const Disk> disks(disks_.begin(), static_cast<size_t>(disks_.count()));
        writeWhole(config_.metrics, diskMetricsText(disks, figures_));
        say("metrics", "");
    } catch (const Failure &failure) {
        say("metrics", failure.what() + metricsHint(config_.metrics));
    }
}

} // namespace tool::monitor

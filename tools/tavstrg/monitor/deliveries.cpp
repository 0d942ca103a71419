// SPDX-License-Identifier: Apache-2.0
#include "tavstrg/monitor/deliveries.h"

#include "tavstrg/monitor/journal.h"
#include "tavstrg/monitor/lines.h"

#include <algorithm>
#include <cstring>
#include <utility>

namespace tool::monitor {
namespace {

constexpr Route kAllRoutes[] = {Route::journal, Route::hooks, Route::lines, Route::agent};
constexpr size_t kBytesPerKilobyte = 1024;

bool runsPrograms(Route route)
{
    return route == Route::hooks || route == Route::agent;
}

bool isWanted(const Config &config, Route route)
{
    switch (route) {
    case Route::journal:
        return !config.journal.empty();
    case Route::hooks:
        return !config.hooks.empty();
    case Route::lines:
        return !config.lines.empty();
    case Route::agent:
        break;
    }
    return config.agent;
}

std::string joined(const std::vector<std::string> &lines)
{
    std::string text;
    for (const std::string &line : lines) {
        text += (text.empty() ? "" : "\n") + line;
    }
    return text;
}

} // namespace

Deliveries::Deliveries(State &state, StateFile &file, Programs::Command agentCommand, Say say)
    : state_(state), file_(file), agentCommand_(std::move(agentCommand)), say_(std::move(say))
{
}

void Deliveries::configure(const Config &config)
{
    config_ = config;
    for (const Route route : kAllRoutes) {
        wanted_[static_cast<size_t>(route)] = isWanted(config, route);
        retryAt_[static_cast<size_t>(route)].reset();
        if (isWanted(config, route)) {
            continue;
        }
        for (Report &report : state_.reports) {
            if (isOpen(report.on(route))) {
                set(report, route, Delivery::done); // "-" would change the file's checksum
            }
        }
    }
}

void Deliveries::set(Report &report, Route route, Delivery delivery)
{
    report.on(route) = delivery;
    file_.note(report);
}

Report *Deliveries::firstOpen(Route route)
{
    const auto found = std::find_if(state_.reports.begin(), state_.reports.end(),
                                    [route](const Report &report) { return isOpen(report.on(route)); });
    return found == state_.reports.end() ? nullptr : &*found;
}

// Returns 0 or an errno.
int Deliveries::handOver(Route route, const Report &report, bool repeated)
{
    if (route == Route::journal) {
        return sendDatagram(config_.journal, journalEntry(report, repeated));
    }
    return appendLine(config_.lines, jsonLine(report), repeated,
                      static_cast<size_t>(config_.linesKilobytes) * kBytesPerKilobyte);
}

void Deliveries::deliverAtOnce(Route route, int64_t now)
{
    while (Report *const report = firstOpen(route)) {
        const Delivery before = report->on(route);
        set(*report, route, Delivery::sending);
        if (const int error = handOver(route, *report, before == Delivery::sending); error != 0) {
            set(*report, route, before);
            retryAt_[static_cast<size_t>(route)] = now + kRetryMs;
            const std::string &path = route == Route::journal ? config_.journal : config_.lines;
            say_(nameOf(route), path + ": " + std::strerror(error) + "; events wait for it");
            return;
        }
        set(*report, route, Delivery::done);
        say_(nameOf(route), "");
    }
}

std::vector<Programs::Command> Deliveries::commandsOf(Route route)
{
    if (route == Route::agent) {
        return {agentCommand_};
    }
    const ProgramList list = listPrograms(config_.hooks);
    say_("skipped hooks", joined(list.skipped));
    std::vector<Programs::Command> commands;
    for (const std::string &path : list.paths) {
        commands.push_back({{path}});
    }
    return commands;
}

// The programs of the next event. One for which there is none is delivered.
void Deliveries::startNext(Route route, int64_t now)
{
    Report *report = firstOpen(route);
    if (report == nullptr) {
        return;
    }
    const std::vector<Programs::Command> commands = commandsOf(route);
    if (commands.empty()) {
        for (; report != nullptr; report = firstOpen(route)) {
            set(*report, route, Delivery::done);
        }
        return;
    }
    const Delivery before = report->on(route);
    set(*report, route, Delivery::sending);
    inHand_[static_cast<size_t>(route)] = {report->number, before};
    programsOf(route).start(commands, environmentOf(*report, before == Delivery::sending), now);
}

// All programs of an event have ended. A hook that fails has had its event; the agent that refuses gets it again,
// marked as repeated if it may have had it.
void Deliveries::takeEnds(Route route, int64_t now)
{
    std::vector<std::string> failures;
    for (const Ended &ended : programsOf(route).ended()) {
        if (std::string words = endWords(ended); !words.empty()) {
            failures.push_back(std::move(words));
        }
    }
    const InHand inHand = inHand_[static_cast<size_t>(route)];
    const auto report = std::find_if(state_.reports.begin(), state_.reports.end(),
                                     [inHand](const Report &one) { return one.number == inHand.number; });
    if (report == state_.reports.end() || !isOpen(report->on(route))) { // given up or switched off meanwhile
        return;
    }
    const bool refused = route == Route::agent && !failures.empty();
    const bool mayHaveArrived = std::any_of(programsOf(route).ended().begin(), programsOf(route).ended().end(),
                                            [](const Ended &ended) { return ended.late || ended.signal != 0; });
    if (!refused) {
        set(*report, route, Delivery::done);
    } else if (!mayHaveArrived) {
        set(*report, route, inHand.before);
    }
    say_(nameOf(route), failures.empty() ? "" : joined(failures) + (refused ? "; events wait for the agent" : ""));
    if (refused) {
        retryAt_[static_cast<size_t>(route)] = now + kRetryMs;
    }
}

void Deliveries::deliverByPrograms(Route route, int64_t now)
{
    Programs &programs = programsOf(route);
    const bool waits = retryAt_[static_cast<size_t>(route)].has_value();
    if (!programs.isRunning() && !waits) {
        startNext(route, now);
    }
    while (programs.look(now)) { // also those that could not be started
        takeEnds(route, now);
        if (!retryAt_[static_cast<size_t>(route)]) {
            startNext(route, now);
        }
    }
}

void Deliveries::deliver(int64_t now)
{
    for (const Route route : kAllRoutes) {
        std::optional<int64_t> &retryAt = retryAt_[static_cast<size_t>(route)];
        if (retryAt && *retryAt <= now) {
            retryAt.reset();
        }
        if (runsPrograms(route)) {
            deliverByPrograms(route, now);
        } else if (!retryAt) {
            deliverAtOnce(route, now);
        }
    }
}

std::optional<int64_t> Deliveries::wakeAt() const
{
    std::optional<int64_t> first;
    const auto take = [&first](const std::optional<int64_t> &time) {
        if (time) {
            first = std::min(first.value_or(*time), *time);
        }
    };
    take(hooks_.deadline());
    take(agent_.deadline());
    for (const Route route : kAllRoutes) {
        take(retryAt_[static_cast<size_t>(route)]);
    }
    return first;
}

size_t Deliveries::open() const
{
    return static_cast<size_t>(std::count_if(state_.reports.begin(), state_.reports.end(),
                                             [](const Report &report) { return isOpen(report); }));
}

bool Deliveries::isSettled() const
{
    return !hooks_.isRunning() && !agent_.isRunning();
}

void Deliveries::stop()
{
    hooks_.killAll();
    agent_.killAll();
}

} // namespace tool::monitor

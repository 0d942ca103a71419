// SPDX-License-Identifier: Apache-2.0
#include "tavstrg/surroundings.h"

#include "tavstrg/failure.h"
#include "tavstrg/machine_file.h"

#include "sim/sim.h"
#include "store/store.h"

#include <exception>
#include <filesystem>

namespace tool {
namespace {

constexpr const char *kWorkDirectory = "/opt/qlm/tavkit_sa/work";
constexpr const char *kTraceLibrary = "/opt/qlm/tavkit_sa/lib/libtavlog.so";
constexpr const char *kAlertLibrary = "/opt/qlm/tavkit_sa/lib/libtavalert.so";

TracePrinting printingOf(const Arguments &arguments)
{
    return !arguments.trace ? TracePrinting::none : arguments.json ? TracePrinting::json : TracePrinting::text;
}

} // namespace

SignalsWait::SignalsWait()
{
    sigset_t ending;
    sigemptyset(&ending);
    for (const int signal : {SIGHUP, SIGINT, SIGTERM}) {
        sigaddset(&ending, signal);
    }
    pthread_sigmask(SIG_BLOCK, &ending, &before_);
}

SignalsWait::~SignalsWait()
{
    pthread_sigmask(SIG_SETMASK, &before_, nullptr);
}

Surroundings::Surroundings(const Arguments &arguments, Use use)
    : machineFile_(arguments.machine), stateDirectory_(arguments.state), use_(use), machine_(makeMachine())
{
    if (use_ == Use::none) {
        return;
    }
    trace_.emplace(printingOf(arguments), commandName(arguments.command), use_ != Use::read);
    if (use_ == Use::read) {
        copy_.emplace();
    }
    redirect();
}

Surroundings::~Surroundings()
{
    sim::redirect({});
}

std::unique_ptr<sim::Machine> Surroundings::makeMachine() const
{
    if (machineFile_.empty()) {
        return nullptr;
    }
    const std::string description = readMachineFile(machineFile_);
    try {
        return std::make_unique<sim::Machine>(use_ == Use::watch ? withAgentLibraries(description) : description,
                                              stateDirectory_);
    } catch (const std::exception &error) {
        throw Failure(machineFile_ + ": " + error.what());
    }
}

void Surroundings::redirect()
{
    std::vector<sim::Redirection> redirections;
    if (copy_) {
        redirections.push_back({kSavedStateFile, copy_->stateFile()});
        redirections.push_back({kWorkDirectory, copy_->workDirectory()});
    }
    if (!trace_->library().empty()) {
        redirections.push_back({kTraceLibrary, trace_->library()});
        if (use_ != Use::watch) {
            redirections.push_back({kAlertLibrary, trace_->library()});
        }
    }
    sim::redirect(std::move(redirections));
}

void Surroundings::changeMachine(const std::string &description)
{
    try {
        machine_->change(use_ == Use::watch ? withAgentLibraries(description) : description);
    } catch (const std::exception &error) {
        throw Failure(machineFile_ + ": " + error.what());
    }
}

std::string Surroundings::stateFile() const
{
    return copy_ ? copy_->stateFile() : kSavedStateFile;
}

} // namespace tool

// SPDX-License-Identifier: Apache-2.0
#include "tavstrg/surroundings.h"

#include "tavstrg/agent_paths.h"
#include "tavstrg/ending_signals.h"
#include "tavstrg/failure.h"
#include "tavstrg/machine_file.h"

#include "sim/sim.h"
#include "store/store.h"

#include <exception>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <system_error>

using namespace tavstrg;

namespace tool {
namespace {

TracePrinting printingOf(const Arguments &arguments)
{
    return !arguments.trace ? TracePrinting::none : arguments.json ? TracePrinting::json : TracePrinting::text;
}

// What the agent of earlier runs has in its data directory, except for files that the description has.
void copyData(const std::string &stateDirectory, sim::Machine &machine)
{
    const std::filesystem::path data = std::filesystem::path(stateDirectory) / "data";
    std::error_code error;
    for (const auto &entry : std::filesystem::directory_iterator(data, error)) {
        const std::string path = kAgentData + ("/" + entry.path().filename().string());
        if (entry.symlink_status().type() == std::filesystem::file_type::regular && !machine.exists(path)) {
            std::ifstream file(entry.path(), std::ios::binary);
            machine.write(path, std::string(std::istreambuf_iterator<char>(file), {}));
        }
    }
}

} // namespace

SignalsWait::SignalsWait()
{
    const sigset_t ending = endingSignals();
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
    const bool keeps = use_ == Use::write || use_ == Use::watch;
    try {
        auto machine = std::make_unique<sim::Machine>(
            use_ == Use::watch ? withAgentLibraries(description) : description, keeps ? stateDirectory_ : "");
        if (!keeps && !stateDirectory_.empty()) {
            copyData(stateDirectory_, *machine);
        }
        return machine;
    } catch (const std::exception &error) {
        throw Failure(machineFile_ + ": " + error.what());
    }
}

void Surroundings::redirect()
{
    std::vector<sim::Redirection> redirections;
    if (copy_) {
        redirections.push_back({kSavedStateFile, copy_->stateFile()});
        redirections.push_back({kAgentWork, copy_->workDirectory()});
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

// SPDX-License-Identifier: Apache-2.0
#include "tavstrg/session.h"

#include "tavstrg/failure.h"
#include "tavstrg/machine_file.h"

#include "sim/sim.h"

#include <filesystem>
#include <stdexcept>
#include <system_error>

namespace tool {
namespace {

namespace fs = std::filesystem;

constexpr const char *kSharedObject = "libTAVStorageProvider.so";

std::string ownPath()
{
    std::error_code error;
    return fs::read_symlink("/proc/self/exe", error).string();
}

// Absolute, because a bare file name would be looked for in the loader's directories instead of here.
std::string locateProvider(const std::string &named)
{
    std::error_code error;
    if (!named.empty()) {
        return fs::absolute(named, error).string();
    }
    std::string tried;
    for (const std::string &candidate : providerCandidates(ownPath())) {
        if (fs::exists(candidate, error)) {
            return candidate;
        }
        tried += (tried.empty() ? "" : ", ") + candidate;
    }
    throw Failure("no provider found (" + tried + "); name one with --provider");
}

std::string wanted(const std::string &description, const Session::Options &options)
{
    return options.agentLibraries ? withAgentLibraries(description) : description;
}

} // namespace

std::unique_ptr<sim::Machine> makeMachine(const Session::Options &options)
{
    if (options.machine.empty()) {
        return nullptr;
    }
    const std::string description = wanted(readMachineFile(options.machine), options);
    try {
        return std::make_unique<sim::Machine>(description);
    } catch (const std::exception &error) {
        throw Failure(options.machine + ": " + error.what());
    }
}

std::vector<std::string> providerCandidates(const std::string &toolPath)
{
    const fs::path prefix = fs::path(toolPath).parent_path().parent_path();
    const fs::path system = TAV_SYSTEM_LIBDIR;
    std::vector<std::string> candidates;
    // The broker's directory as configured, and where packages of systems with lib64 have it.
    for (const fs::path &directory :
         {prefix / "lib", prefix / TAV_PROVIDER_DIR, prefix / "lib64/sfcb", system, system / "cmpi"}) {
        candidates.push_back((directory / kSharedObject).string());
    }
    return candidates;
}

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

// The provider is located before the machine is there: it hides the real /proc, where the tool reads its own path.
Session::Session(const Options &options)
    : options_(options), provider_(locateProvider(options.provider)), machine_(makeMachine(options))
{
    load(options.serviceMode);
}

Session::~Session()
{
    broker_->stop();
    broker_.reset();
    machine_.reset();
}

void Session::load(bool serviceMode)
{
    broker::Options brokerOptions;
    brokerOptions.serviceMode = serviceMode;
    broker_ = std::make_unique<broker::Broker>(brokerOptions);
    const std::string problem = broker_->load(provider_);
    if (!problem.empty()) {
        throw Failure("cannot load " + provider_ + ": " + problem);
    }
}

void Session::reload(bool serviceMode)
{
    broker_->stop();
    load(serviceMode);
}

void Session::changeMachine(const std::string &description)
{
    try {
        machine_->change(wanted(description, options_));
    } catch (const std::exception &error) {
        throw Failure(options_.machine + ": " + error.what());
    }
}

broker::Broker &Session::broker()
{
    return *broker_;
}

} // namespace tool

#include "session.h"

#include "failure.h"
#include "machine_file.h"

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
    if (!named.empty())
        return fs::absolute(named, error).string();
    std::string tried;
    for (const std::string &candidate : providerCandidates(ownPath())) {
        if (fs::exists(candidate, error))
            return candidate;
        tried += (tried.empty() ? "" : ", ") + candidate;
    }
    throw Failure("no provider found (" + tried + "); name one with --provider");
}

std::unique_ptr<sim::Machine> makeMachine(const std::string &path)
{
    if (path.empty())
        return nullptr;
    const std::string description = readMachineFile(path);
    try {
        return std::make_unique<sim::Machine>(description);
    } catch (const std::exception &error) {
        throw Failure(path + ": " + error.what());
    }
}

} // namespace

std::vector<std::string> providerCandidates(const std::string &toolPath)
{
    const fs::path beside = fs::path(toolPath).parent_path().parent_path() / "lib";
    const fs::path system = TAV_SYSTEM_LIBDIR;
    std::vector<std::string> candidates;
    for (const fs::path &directory : {beside, system, system / "cmpi"})
        candidates.push_back((directory / kSharedObject).string());
    return candidates;
}

Session::SignalsWait::SignalsWait()
{
    sigset_t ending;
    sigemptyset(&ending);
    for (const int signal : {SIGHUP, SIGINT, SIGTERM})
        sigaddset(&ending, signal);
    pthread_sigmask(SIG_BLOCK, &ending, &before_);
}

Session::SignalsWait::~SignalsWait()
{
    pthread_sigmask(SIG_SETMASK, &before_, nullptr);
}

Session::Session(const Options &options)
{
    // Before the machine is there: it hides the real /proc, where the tool reads its own path.
    const std::string provider = locateProvider(options.provider);
    machine_ = makeMachine(options.machine);
    broker::Options brokerOptions;
    brokerOptions.serviceMode = options.serviceMode;
    broker_ = std::make_unique<broker::Broker>(brokerOptions);
    const std::string problem = broker_->load(provider);
    if (!problem.empty())
        throw Failure("cannot load " + provider + ": " + problem);
}

Session::~Session()
{
    broker_->stop();
    broker_.reset();
    machine_.reset();
}

broker::Broker &Session::broker()
{
    return *broker_;
}

} // namespace tool

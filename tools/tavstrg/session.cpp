// SPDX-License-Identifier: Apache-2.0
#include "tavstrg/session.h"

#include "tavstrg/catalogue.h"
#include "tavstrg/failure.h"

#include "classes/disk_properties.h"

#include <filesystem>
#include <system_error>

namespace tool {
namespace {

namespace fs = std::filesystem;

constexpr const char *kSharedObject = "libTAVStorageProvider.so";

// The process's own entries in /proc are real on a simulated machine too.
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

} // namespace

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

namespace {

// Its properties that a disk does not report are NULL then. The other classes set all of theirs.
void declareDisk(broker::Broker &broker)
{
    std::vector<broker::Property> properties;
    for (const PropertyEntry &property : findClass(tavstrg::kDiskClass)->properties) {
        properties.push_back({property.name, property.type, property.key});
    }
    broker.addClass(tavstrg::kDiskClass, properties);
}

} // namespace

Session::Session(Surroundings &surroundings, const Arguments &arguments, bool serviceMode)
    : surroundings_(surroundings), provider_(locateProvider(arguments.provider))
{
    load(serviceMode);
}

Session::~Session()
{
    broker_->stop();
}

void Session::load(bool serviceMode)
{
    broker::Options options;
    options.serviceMode = serviceMode;
    broker_ = std::make_unique<broker::Broker>(options);
    declareDisk(*broker_);
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

} // namespace tool

// SPDX-License-Identifier: Apache-2.0
#include "tavstrg/machine_follower.h"

#include "tavstrg/failure.h"
#include "tavstrg/machine_file.h"

#include <utility>

namespace tool {

bool MachineFollower::State::operator==(const State &other) const
{
    if (!there || !other.there) {
        return there == other.there;
    }
    return status.st_mtim.tv_sec == other.status.st_mtim.tv_sec &&
           status.st_mtim.tv_nsec == other.status.st_mtim.tv_nsec && status.st_size == other.status.st_size &&
           status.st_dev == other.status.st_dev && status.st_ino == other.status.st_ino;
}

MachineFollower::State MachineFollower::stateOf(const std::string &path)
{
    State state;
    state.there = stat(path.c_str(), &state.status) == 0;
    return state;
}

MachineFollower::MachineFollower(std::string path)
    : path_(std::move(path)), known_(stateOf(path_)), last_(known_),
      following_(known_.there && S_ISREG(known_.status.st_mode))
{
}

std::optional<MachineFollower::Change> MachineFollower::look()
{
    if (!following_) {
        return std::nullopt;
    }
    const State now = stateOf(path_);
    const bool settled = now == last_;
    last_ = now;
    if (!settled || now == known_) {
        return std::nullopt;
    }
    known_ = now;
    try {
        return Change{readMachineFile(path_), ""};
    } catch (const Failure &failure) {
        return Change{"", failure.what()};
    }
}

} // namespace tool

// SPDX-License-Identifier: Apache-2.0
// The directory that holds a machine's files.
#pragma once

#include <string>

namespace sim {

class MachineDirectory {
public:
    // Makes a directory that only this user can enter, with a name that cannot be predicted. With a state directory,
    // the agent's data and work directories are links into it. The first directory of a process also removes those that
    // processes of the same user left behind when they were killed. Throws std::runtime_error, leaving nothing behind.
    explicit MachineDirectory(const std::string &stateDirectory = "");
    ~MachineDirectory(); // does not remove the directory
    MachineDirectory(const MachineDirectory &) = delete;
    MachineDirectory &operator=(const MachineDirectory &) = delete;

    const std::string &path() const { return path_; }
    void remove();

private:
    void linkState(const std::string &stateDirectory) const;

    std::string path_;
    int lock_ = -1; // descriptor of a locked file in the directory; unlocked: no process uses the directory any more
};

} // namespace sim

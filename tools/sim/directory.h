// SPDX-License-Identifier: Apache-2.0
// The directory that holds a machine's files.
#pragma once

#include <string>

namespace sim {

class MachineDirectory {
public:
    // Makes one; with a state directory, the agent's data and work lie there. Throws std::runtime_error. The first one
    // of a process also removes those that crashed processes have left.
    explicit MachineDirectory(const std::string &stateDirectory = "");
    ~MachineDirectory(); // leaves it where it is
    MachineDirectory(const MachineDirectory &) = delete;
    MachineDirectory &operator=(const MachineDirectory &) = delete;

    const std::string &path() const { return path_; }
    void remove();

private:
    std::string path_;
    int lock_; // descriptor of a locked file in it: whoever finds it unlocked knows that no process uses the directory
};

} // namespace sim

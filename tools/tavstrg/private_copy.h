// SPDX-License-Identifier: Apache-2.0
// Commands that only read must not change what a monitor on the same machine works with: its saved state, its key files
// and its segments.
#pragma once

#include <string>

namespace tool {

// A directory of the tool's own that takes the place of the saved state and of the agent's work directory for this
// process. Its saved state has the monitor's configuration and no devices, so the provider does not collect when it is
// initialised, and one request afterwards collects once. The directory is removed with the object.
class PrivateCopy {
public:
    // Reads the saved state of the machine that the process sees. Throws Failure if the directory cannot be made.
    PrivateCopy();
    ~PrivateCopy();
    PrivateCopy(const PrivateCopy &) = delete;
    PrivateCopy &operator=(const PrivateCopy &) = delete;

    std::string stateFile() const;
    std::string workDirectory() const;

private:
    std::string directory_;
    int lock_ = -1; // while it is held, no other tool takes the directory for one that a killed tool left
};

// A saved state without devices. The configuration is that of "state" if the provider would accept it, else the
// default.
std::string stateWithoutDevices(const std::string &state);

} // namespace tool

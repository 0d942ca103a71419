// SPDX-License-Identifier: Apache-2.0
// The directory of the service and the file in it.
#pragma once

#include "tavstrg/monitor/state.h"

#include "runtime/holders.h"

#include <optional>
#include <string>
#include <vector>

namespace tool::monitor {

// The service's directory, locked as long as this exists. Made, for its owner alone, where it is missing.
class StateDirectory {
public:
    // Throws Failure if there is none, or if another service uses it.
    explicit StateDirectory(const std::string &path);
    int descriptor() const { return lock_.get(); } // a child process must close it: the lock goes with its last holder

private:
    tavstrg::FileDesc lock_;
};

class StateFile {
public:
    explicit StateFile(const std::string &directory) : path_(directory + "/monitor.state") {}

    // Reads the state. Returns what is to be said about it, empty if nothing: a damaged file, or one of a later
    // version, was moved aside, and the state is begun. Throws Failure if the file can neither be read nor moved.
    std::string read(State &state);

    // Replaces the file. Returns 0 or an errno; the old file is then unchanged.
    int save(const State &state);

    // Writes the letters of a report into the file that was saved last by this object, where it is in it. What cannot
    // be written is left: the event is then delivered again after a restart.
    void note(const Report &report) const;

private:
    std::string path_;
    struct Place {
        uint64_t number;
        size_t lettersAt;
    };
    std::vector<Place> places_;                // of the reports in the file
    std::optional<tavstrg::FileDesc> written_; // the file that was saved last
};

} // namespace tool::monitor

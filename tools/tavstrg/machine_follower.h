// SPDX-License-Identifier: Apache-2.0
// The description of a simulated machine, followed while it is edited.
#pragma once

#include <sys/stat.h>

#include <optional>
#include <string>

namespace tool {

class MachineFollower {
public:
    // The present content is no change. Only a regular file is followed.
    explicit MachineFollower(std::string path);

    struct Change {
        std::string text;    // the new description
        std::string problem; // or why there is none, "FILE:LINE:COLUMN: why"
    };
    // To be called some times a second. Returns a change once, at the first call that finds the file as the previous
    // call did: an editor may write it in several steps.
    std::optional<Change> look();

private:
    struct State {
        bool there = false;
        struct stat status {};
        bool operator==(const State &other) const;
    };
    static State stateOf(const std::string &path);

    std::string path_;
    State known_;
    State last_;
    bool following_;
};

} // namespace tool

// SPDX-License-Identifier: Apache-2.0
// Programs that are run with an environment only, side by side, beside everything else that the service does. They get
// no argument but what is given, no shell, and /dev/null as standard input and outputs.
#pragma once

#include <sys/stat.h>
#include <sys/types.h>

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tool::monitor {

constexpr int64_t kLongestRunMs = 30000; // after which a program is killed, and all of its process group with it
constexpr size_t kMostPrograms = 32;     // in a directory; further ones are not run

// Whether a name in the directory is that of an executable to be run, not of a backup copy or of what a package manager
// left: letters, digits, "_", "-" and ".", not first; without a suffix of those.
bool isProgramName(std::string_view name);

// Why a file, or a directory, is not to be trusted by a process of that user: it is none, it belongs to somebody else
// than root and that user, others may write to it, or nobody may execute it. Empty if it is.
std::string distrust(const struct stat &info, uid_t user);
std::string distrustDirectory(const struct stat &info, uid_t user);

struct ProgramList {
    std::vector<std::string> paths;   // absolute, sorted by name
    std::vector<std::string> skipped; // "PATH: reason"
    bool exists = false;              // the directory
};
// The programs of a directory. One that is not to be trusted has none.
ProgramList listPrograms(const std::string &directory);

// How a program ended.
struct Ended {
    std::string path;
    int status = 0;    // exit status
    int signal = 0;    // that ended it
    int error = 0;     // errno with which it could not be started
    bool late = false; // killed after kLongestRunMs
};
std::string endWords(const Ended &ended); // empty for exit status 0

// The programs that run for one event.
class Programs {
public:
    Programs() = default;
    ~Programs() { killAll(); }
    Programs(const Programs &) = delete;
    Programs &operator=(const Programs &) = delete;

    struct Command {
        std::vector<std::string> words; // [0]: the path
    };
    // Starts all; only while none runs. now: milliseconds of a clock that is not set.
    void start(const std::vector<Command> &commands, const std::vector<std::string> &environment, int64_t now);
    // Takes note of those that have ended, and kills those that are late. Returns true once, when none runs any more.
    bool look(int64_t now);
    bool isRunning() const { return !running_.empty(); }
    // When the first is to be killed; nothing if none runs.
    std::optional<int64_t> deadline() const;
    // How those that were started last ended.
    const std::vector<Ended> &ended() const { return ended_; }
    void killAll(); // and forgets them

private:
    struct Running {
        pid_t process;
        std::string path;
        int64_t deadline;
        bool late;
    };
    bool reap(const Running &one);

    std::vector<Running> running_;
    std::vector<Ended> ended_;
    bool finished_ = true;
};

} // namespace tool::monitor

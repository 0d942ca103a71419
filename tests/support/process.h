// SPDX-License-Identifier: Apache-2.0
// Child processes for tests and benchmarks: a program with its outputs captured, or work in a copy of this process.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <ctime>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace process {

// Where an output goes.
enum class Output {
    kept,      // to the caller, who finds it in Finished
    inherited, // the caller's own
    discarded, // /dev/null
    full,      // a device on which nothing can be written
    unread,    // a pipe whose reader is closed
    closed,
    terminal, // to the caller, through a terminal
};

struct Command {
    std::vector<std::string> words;            // [0]: the program, a path or a name to be found in PATH
    std::vector<std::string> environment = {}; // "NAME=VALUE", which replace or extend the caller's
    Output out = Output::kept;
    Output err = Output::kept;
    unsigned short columns = 0; // width of the terminals; 0: not set
};

struct Finished {
    int status = -1; // exit status; -1 if a signal ended the process
    int signal = 0;
    pid_t pid = 0;
    bool late = false; // killed because the deadline passed
    std::string out;
    std::string err;
    double wallSeconds = 0; // from before the start to the end
    double cpuSeconds = 0;  // user and system, of the process and of its children that have ended
    long peakKb = 0;        // of the resident set of the largest of them
};

constexpr std::chrono::milliseconds kNoDeadline{0};

// A running child. Its standard input is /dev/null if it is a program, the caller's if it is work.
class Process {
public:
    // Throws std::runtime_error if the program cannot be run.
    explicit Process(const Command &command);
    // Runs work in a fork of this process, which must have one thread, and ends with the status that work returns,
    // without the clean-up of an ordinary end. Throws std::runtime_error if no process can be created.
    explicit Process(const std::function<int()> &work);
    ~Process(); // kills it if wait() was not called
    Process(const Process &) = delete;
    Process &operator=(const Process &) = delete;

    pid_t pid() const { return finished_.pid; }
    void send(int signal) const;
    // Waits until one of the kept outputs contains the text. Returns false if the outputs ended or the time passed
    // without it.
    bool says(const std::string &text, std::chrono::milliseconds deadline = std::chrono::seconds(30));
    // Closes the reading end of its standard output.
    void stopReading();
    // Reads the kept outputs to their end and waits for the end of the process, which is killed after the deadline.
    Finished wait(std::chrono::milliseconds deadline = kNoDeadline);

private:
    struct Streams;
    bool readSome(int milliseconds);
    bool reap(bool block);

    std::unique_ptr<Streams> streams_;
    Finished finished_;
    std::chrono::steady_clock::time_point start_;
    bool waited_ = false;
};

// Runs a program to its end. A signal other than 0 is sent as soon as it is started.
Finished run(const Command &command, int signal = 0);

// Start of this process.
extern const std::time_t begun;

// System V shared-memory segments that a process created and that are not removed.
struct Segment {
    int id;
    unsigned key;
    size_t bytes;
};
// Only those created since the given time: an older one belongs to a killed process that had the same identifier.
std::vector<Segment> segmentsOf(pid_t creator, std::time_t since = begun);
void removeSegmentsOf(pid_t creator, std::time_t since = begun);

} // namespace process

// SPDX-License-Identifier: Apache-2.0
// System V shared-memory segments of providers on this machine: of the tool's own process, and of a monitor's.
#pragma once

#include <sys/types.h>

#include <ctime>
#include <optional>
#include <string>
#include <vector>

namespace tool {

struct Segment {
    int key = 0;
    int id = 0;
    size_t size = 0;
    pid_t creator = 0;
    time_t made = 0;
};

// All segments of the machine; empty if the kernel does not list them.
std::vector<Segment> segments();

// Removes the segments that a process has made since "since". To be called while the process identifier cannot belong
// to another process yet.
void removeSegmentsOf(pid_t creator, time_t since);

// Another process in which the provider has built its store, and which would overwrite a value that this process saves.
// It is recognised by the segment of the configuration class: made by a process that still runs, under the key file in
// the agent's work directory. anyKeyFile also finds one whose key file another process has replaced since; where
// simulated machines keep their state, that would also find the providers of others.
// To be called while the process sees the real machine.
struct Monitor {
    pid_t process = 0;
    std::string name; // of its program, printable
};
std::optional<Monitor> runningMonitor(const std::string &workDirectory, bool anyKeyFile);

} // namespace tool

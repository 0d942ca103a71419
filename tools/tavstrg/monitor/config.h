// SPDX-License-Identifier: Apache-2.0
// The configuration of the monitoring service: one small file, NAME = VALUE a line, "#" begins a line of comment.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace tool::monitor {

constexpr char kConfigFile[] = "/etc/tavstrg/monitor.conf";
constexpr size_t kMostConfigBytes = 65536;
constexpr int kLeastCycle = 10; // seconds
constexpr int kMostCycle = 86400;

// A path that is empty: "no", the route or file is switched off.
struct Config {
    int cycle = 300;                                     // seconds from the begin of a pass to that of the next
    std::string state = "/var/lib/tavstrg";              // directory; never empty
    std::string journal = "/run/systemd/journal/socket"; // journald's native socket
    std::string hooks = "/etc/tavstrg/hooks.d";          // directory of executables
    std::string lines;                                   // file of JSON lines
    int linesKilobytes = 1024;                           // at which that file is renamed to FILE.1
    bool agent = false;                                  // the agent's alert library
    std::string metrics = "/var/lib/prometheus/node-exporter/tavstrg.prom";

    bool operator==(const Config &) const = default;
};

struct ConfigProblem {
    size_t line; // from 1; 0: of the whole file
    std::string reason;
};

struct ParsedConfig {
    Config config; // problems left out
    std::vector<ConfigProblem> problems;
};

ParsedConfig parseConfig(std::string_view text);

// Reads a file. One that is absent counts as empty unless it must exist; what cannot be read is a problem of line 0.
ParsedConfig readConfig(const std::string &path, bool mustExist);

// "FILE:LINE: reason", one a line, without a newline at the end.
std::string problemLines(const std::string &path, const std::vector<ConfigProblem> &problems);

} // namespace tool::monitor

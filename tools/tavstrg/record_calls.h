// SPDX-License-Identifier: Apache-2.0
// What a pass sent to the disks and what came back, as the kernel carried it.
#pragma once

#include "tavstrg/record_names.h"

#include "sim/sim.h"

#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace tool {

struct RecordedCommand {
    ByteVector cdb, data, sense;
    int error = 0; // errno value of the ioctl, else the statuses count
    int status = 0, hostStatus = 0, driverStatus = 0;
};

// NVMe: Get Log Page for the health log.
struct RecordedHealthLog {
    int error = 0;  // errno value of the ioctl
    int status = 0; // of the command
    ByteVector data;
};

struct NodeCalls {
    std::optional<int> openError; // 0: opened; none: nobody tried, or it has not returned
    std::vector<RecordedCommand> commands;
    std::optional<RecordedHealthLog> healthLog;
};

// Threads may be with disks that hang when the pass is over: they still call it.
class Calls : public sim::DeviceListener {
public:
    void opened(const char *path, int descriptor, int error) override;
    void answered(int descriptor, unsigned long request, const void *argument, int result, int error) override;
    // Of a node's name, such as "sda".
    NodeCalls of(const std::string &node) const;

private:
    mutable std::mutex mutex_;
    std::map<int, std::string> nodes_; // by descriptor
    std::map<std::string, NodeCalls> calls_;
};

} // namespace tool

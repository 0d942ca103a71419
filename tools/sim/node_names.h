// SPDX-License-Identifier: Apache-2.0
// Names of device nodes and their numbers, as the kernel assigns them (Documentation/admin-guide/devices.txt).
#pragma once

#include <string>
#include <string_view>

namespace sim {

struct NodeNumber {
    bool block = false;
    unsigned major = 0, minor = 0;
};

// Of "sda", "sdaa", "hdb", "sr0", "st0", "sg0", "nvme0", "nvme0n1", "vda", "mmcblk0"; zeros for another name.
NodeNumber nodeNumber(std::string_view name);

// The nth (0-based) disk name: sda, ..., sdz, sdaa, ...
std::string diskName(unsigned n);

} // namespace sim

// SPDX-License-Identifier: Apache-2.0
// Device numbers by node names, as the kernel gives them (Documentation/admin-guide/devices.txt).
#pragma once

#include <string_view>
#include <sys/types.h>

namespace sim {

struct NodeNumber {
    bool block = false;
    unsigned major = 0, minor = 0;
};

// Of "sda", "sdaa", "hdb", "sr0", "st0", "sg0"; zeros for another name.
NodeNumber nodeNumber(std::string_view name);

} // namespace sim

// SPDX-License-Identifier: Apache-2.0
// Attributes of a block device in sysfs.
#pragma once

#include "sim/tree.h"

#include <cstdint>
#include <string>

namespace sim {

void addBlockAttributes(Tree &tree, const DeviceDescription &device, const TreePath &block);

// Text of the file "stat" after that many requests of 8 sectors and 1 ms each.
std::string statText(uint64_t reads, uint64_t writes);

} // namespace sim

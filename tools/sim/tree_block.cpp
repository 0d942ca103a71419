// SPDX-License-Identifier: Apache-2.0
// Documentation/block/stat.rst, Documentation/ABI/stable/sysfs-block.
#include "sim/tree_block.h"

#include <algorithm>
#include <array>
#include <cinttypes>
#include <cstdio>

namespace sim {

std::string statText(uint64_t reads, uint64_t writes)
{
    std::array<char, 256> text{};
    std::snprintf(text.data(), text.size(),
                  "%8" PRIu64 " %8u %8" PRIu64 " %8" PRIu64 " %8" PRIu64 " %8u %8" PRIu64 " %8" PRIu64 " %8u %8" PRIu64
                  " %8" PRIu64 " %8u %8u %8u %8u %8u %8u\n",
                  reads, 0U, reads * 8, reads, writes, 0U, writes * 8, writes, 0U, reads + writes, reads + writes, 0U,
                  0U, 0U, 0U, 0U, 0U);
    return text.data();
}

void addBlockAttributes(Tree &tree, const DeviceDescription &device, const TreePath &block)
{
    const auto add = [&tree](const TreePath &path, const std::string &text) { tree[path] = {Node::file, text + "\n"}; };
    const BlockDescription &is = device.block;
    const bool rotates = is.rotationRate.value_or(1) != 0;
    add(block / "size", std::to_string(device.sectors));
    add(block / "removable", is.removable ? "1" : "0");
    add(block / "ro", is.readOnly ? "1" : "0");
    add(block / "hidden", "0");
    add(block / "queue" / "rotational", rotates ? "1" : "0");
    add(block / "queue" / "logical_block_size", std::to_string(device.sectorSize));
    add(block / "queue" / "physical_block_size", std::to_string(std::max(is.physicalSectorSize, device.sectorSize)));
    add(block / "queue" / "zoned", device.type == kZoned ? "host-managed" : "none");
    tree[block / "stat"] = {Node::file, statText(is.reads, is.writes), 0444};
}

} // namespace sim

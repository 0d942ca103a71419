// SPDX-License-Identifier: Apache-2.0
// virtio-blk disks (drivers/block/virtio_blk.c), MMC and SD cards (drivers/mmc/core/mmc.c, sd.c) in sysfs.
#include "sim/node_names.h"
#include "sim/tree.h"
#include "sim/tree_block.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <string>

namespace sim {

namespace {

std::string formatted(const char *format, unsigned number)
{
    std::array<char, 32> text{};
    std::snprintf(text.data(), text.size(), format, number);
    return text.data();
}

// Below the device in "block"; the name is that of the node.
void addDisk(Tree &tree, const DeviceDescription &device, const TreePath &of, const std::string &node)
{
    const TreePath block = of / "block" / node;
    addBlockAttributes(tree, device, block);
    const NodeNumber number = nodeNumber(device.node);
    tree[block / "dev"] = {Node::file, std::to_string(number.major) + ":" +
                                           std::to_string(number.minor + (node == device.node ? 0 : 8)) + "\n"};
    tree[block / "device"] = {Node::link, "../../../" + std::string(of.name())};
    addLink(tree, TreePath("/sys/block") / node, block);
    addLink(tree, TreePath("/sys/class/block") / node, block);
}

TreePath cardDirectory(const CardDescription &card, unsigned slot)
{
    return TreePath("/sys/devices/pci0000:00") /
           (card.pciAddress.empty() ? formatted("0000:00:%02x.0", slot) : card.pciAddress);
}

void addVirtio(Tree &tree, const CardDescription &card, unsigned position, unsigned number)
{
    const TreePath device = card.path.empty()
                                ? cardDirectory(card, 0x08 + position) / ("virtio" + std::to_string(number))
                                : TreePath("/sys/devices/" + card.path);
    tree[device / "vendor"] = {Node::file, "0x1af4\n"};
    tree[device / "device"] = {Node::file, "0x0002\n"};
    addDisk(tree, card.device, device, card.device.node);
    // deliberate: the kernel's text has no line feed
    tree[device / "block" / card.device.node / "serial"] = {Node::file, card.device.serial, 0444};
}

void addMmc(Tree &tree, const CardDescription &card, unsigned position)
{
    const std::string host = "mmc" + std::to_string(position);
    const TreePath device = card.path.empty()
                                ? cardDirectory(card, 0x1a + position) / "mmc_host" / host / (host + ":0001")
                                : TreePath("/sys/devices/" + card.path);
    const auto add = [&](const char *name, const std::string &text) {
        if (!text.empty()) {
            tree[device / name] = {Node::file, text + "\n", 0444};
        }
    };
    add("type", card.type);
    add("name", card.name);
    add("serial", card.device.serial);
    add("cid", card.cid);
    add("date", card.date);
    add("fwrev", card.firmware);
    add("manfid", formatted("0x%06x", card.manufacturer));
    add("oemid", formatted("0x%04x", card.oem));
    add("life_time", card.lifeTime);
    add("pre_eol_info", card.preEol);
    addDisk(tree, card.device, device, card.device.node);
    for (const char *suffix : {"boot0", "boot1"}) {
        if (card.bootPartitions) {
            DeviceDescription boot = card.device;
            boot.sectors = 8192;
            addDisk(tree, boot, device, card.device.node + suffix);
        }
    }
}

} // namespace

void addCards(Tree &tree, const Description &description)
{
    const auto before = std::count_if(description.hosts.begin(), description.hosts.end(),
                                      [](const HostDescription &host) { return host.transport == "virtio"; });
    for (unsigned i = 0; i < description.virtio.size(); ++i) {
        addVirtio(tree, description.virtio[i], i, static_cast<unsigned>(before) + i);
    }
    for (unsigned i = 0; i < description.mmc.size(); ++i) {
        addMmc(tree, description.mmc[i], i);
    }
}

} // namespace sim

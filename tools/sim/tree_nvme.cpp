// SPDX-License-Identifier: Apache-2.0
// NVMe in sysfs: drivers/nvme/host/sysfs.c and multipath.c.
#include "sim/node_names.h"
#include "sim/nvme_pages.h"
#include "sim/tree.h"
#include "sim/tree_block.h"

#include <array>
#include <cstdio>
#include <string>

namespace sim {

namespace {

std::string spaced(const std::vector<uint8_t> &bytes)
{
    std::string text;
    for (const uint8_t byte : bytes) {
        std::array<char, 4> digits{};
        std::snprintf(digits.data(), digits.size(), "%s%02x", text.empty() ? "" : " ", static_cast<unsigned>(byte));
        text += digits.data();
    }
    return text;
}

void addText(Tree &tree, const TreePath &path, const std::string &text)
{
    tree[path] = {Node::file, text + "\n", 0444};
}

// model, serial, firmware_rev and subsysnqn, which controller and subsystem both have.
void addNames(Tree &tree, const NvmeController &controller, const TreePath &directory)
{
    addText(tree, directory / "model", padded(controller.model, 40));
    addText(tree, directory / "serial", padded(controller.serial, 20));
    addText(tree, directory / "firmware_rev", padded(controller.firmware, 8));
    addText(tree, directory / "subsysnqn", controller.nqn);
}

void addNumber(Tree &tree, const TreePath &directory, const std::string &node)
{
    const NodeNumber number = nodeNumber(node);
    addText(tree, directory / "dev", std::to_string(number.major) + ":" + std::to_string(number.minor));
}

void addNamespace(Tree &tree, const NvmeController &controller, const NvmeNamespace &space, const TreePath &directory,
                  bool hidden)
{
    addBlockAttributes(tree, space.device, directory);
    addText(tree, directory / "hidden", hidden ? "1" : "0");
    if (!hidden) {
        addNumber(tree, directory, space.node);
    }
    addText(tree, directory / "nsid", std::to_string(space.nsid));
    addText(tree, directory / "wwid", wwidOf(controller, space));
    if (!space.nguid.empty()) {
        addText(tree, directory / "nguid", uuidText(space.nguid));
    }
    if (!space.eui.empty()) {
        addText(tree, directory / "eui", spaced(space.eui));
    }
    if (!space.uuid.empty() || !space.nguid.empty()) {
        addText(tree, directory / "uuid", uuidText(space.uuid.empty() ? space.nguid : space.uuid));
    }
    for (const char *list : {"/sys/block", "/sys/class/block"}) {
        addLink(tree, TreePath(list) / directory.name(), directory);
    }
}

TreePath controllerDirectory(const NvmeController &controller)
{
    const std::string name = "nvme" + std::to_string(controller.number);
    if (!controller.path.empty()) {
        return TreePath("/sys/devices/" + controller.path);
    }
    return controller.transport == "pcie" ? TreePath("/sys/devices/pci0000:00") / controller.address / "nvme" / name
                                          : TreePath("/sys/devices/virtual/nvme-fabrics/ctl") / name;
}

void addController(Tree &tree, const NvmeController &controller)
{
    const TreePath directory = controllerDirectory(controller);
    const std::string name(directory.name());
    addNames(tree, controller, directory);
    addText(tree, directory / "transport", controller.transport);
    addText(tree, directory / "address", controller.address);
    addText(tree, directory / "cntlid", std::to_string(controller.cntlid));
    addText(tree, directory / "state", controller.state);
    addNumber(tree, directory, name);
    addLink(tree, TreePath("/sys/class/nvme") / name, directory);
    if (controller.transport == "pcie") {
        tree[directory / "device"] = {Node::link, "../../../" + controller.address};
    }
    const TreePath subsystem =
        TreePath("/sys/devices/virtual/nvme-subsystem") / ("nvme-subsys" + std::to_string(controller.subsystem));
    addNames(tree, controller, subsystem);
    addLink(tree, subsystem / name, directory);
    addLink(tree, TreePath("/sys/class/nvme-subsystem") / subsystem.name(), subsystem);
    for (const NvmeNamespace &space : controller.namespaces) {
        const bool hidden = !space.path.empty();
        const TreePath own = directory / (hidden ? space.path : space.node);
        addNamespace(tree, controller, space, own, hidden);
        addLink(tree, own / "device", directory);
        if (hidden) {
            const TreePath head = subsystem / space.node;
            addNamespace(tree, controller, space, head, false);
            addLink(tree, head / "device", subsystem);
        }
    }
}

} // namespace

void addNvme(Tree &tree, const Description &description)
{
    for (const std::shared_ptr<const NvmeController> &controller : description.nvme) {
        addController(tree, *controller);
    }
}

} // namespace sim

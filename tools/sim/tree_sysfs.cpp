// SPDX-License-Identifier: Apache-2.0
// /sys of a machine: SCSI hosts and devices as recorded in virtual machines with kernel 6.1.
#include "sim/node_names.h"
#include "sim/tree.h"
#include "sim/tree_block.h"
#include "sim/vpd_pages.h"

#include <cstdio>
#include <optional>
#include <vector>

namespace sim {

namespace {

TreePath scsiDevices()
{
    return TreePath("/sys/bus/scsi/devices");
}

TreePath scsiHosts()
{
    return TreePath("/sys/class/scsi_host");
}

std::string padded(const std::string &text, size_t length)
{
    std::string result = text.substr(0, length);
    result.resize(length, ' ');
    return result;
}

// The directory of each host in the tree of devices: SATA drivers have a port per host, USB storage an interface,
// others the function of a PCI card.
class HostPlaces {
public:
    TreePath directoryOf(const HostDescription &host)
    {
        const std::string name = "host" + std::to_string(host.number);
        const bool sata = host.driver == "ahci" || host.driver.starts_with("ata_") || host.driver.starts_with("sata_");
        if (sata) {
            return slotOf(host, 0x1f) / ("ata" + std::to_string(++ports_)) / name;
        }
        if (host.driver.starts_with("usb")) {
            const std::string port = "2-" + std::to_string(++usbPorts_);
            return slotOf(host, 0x14) / "usb2" / port / (port + ":1.0") / name;
        }
        return slotOf(host, -1) / name;
    }

private:
    TreePath slotOf(const HostDescription &host, int slot)
    {
        char address[32];
        std::snprintf(address, sizeof address, "0000:00:%02x.%d", static_cast<unsigned>(slot < 0 ? 1 + ++cards_ : slot),
                      slot == 0x1f ? 2 : 0);
        return TreePath("/sys/devices/pci0000:00") / (host.pciAddress.empty() ? address : host.pciAddress);
    }

    int ports_ = 0;
    int usbPorts_ = 0;
    int cards_ = 0;
};

void addLink(Tree &tree, const TreePath &link, const TreePath &target)
{
    tree[link] = {Node::link, target.relativeTo(link)};
}

void addHost(Tree &tree, const HostDescription &host, const TreePath &directory)
{
    const std::string name = "host" + std::to_string(host.number);
    tree[directory / "uevent"] = {Node::file, "DEVTYPE=scsi_host\n"};
    tree[directory / "scsi_host" / name / "proc_name"] = {Node::file, host.driver + "\n"};
    addLink(tree, scsiDevices() / name, directory);
    addLink(tree, scsiHosts() / name, directory / "scsi_host" / name);
}

// Adds the directory of a device node below its device. Returns its path.
TreePath addNode(Tree &tree, const TreePath &directory, const char *nodeClass, const std::string &node)
{
    TreePath at = directory / nodeClass / node;
    const NodeNumber number = nodeNumber(node);
    tree[at / "dev"] = {Node::file, std::to_string(number.major) + ":" + std::to_string(number.minor) + "\n"};
    tree[at / "device"] = {Node::link, "../../../" + std::string(directory.name())};
    return at;
}

void addBlock(Tree &tree, const DeviceDescription &device, const TreePath &directory)
{
    const TreePath block = addNode(tree, directory, "block", device.node);
    addBlockAttributes(tree, device, block);
    addLink(tree, TreePath("/sys/block") / device.node, block);
    addLink(tree, TreePath("/sys/class/block") / device.node, block);
}

// The pages that the kernel keeps. Each has been shown since another release of it.
void addPages(Tree &tree, const DeviceDescription &device, const TreePath &directory, unsigned long kernel)
{
    struct Shown {
        uint8_t page;
        const char *name;
        unsigned long since;
    };
    constexpr Shown kShown[] = {{kUnitSerialNumber, "vpd_pg80", 3015000},
                                {kDeviceIdentification, "vpd_pg83", 3015000},
                                {kAtaInformation, "vpd_pg89", 5004000}};
    for (const Shown &shown : kShown) {
        const std::optional<std::vector<uint8_t>> page =
            kernel >= shown.since ? vpdPage(device, shown.page) : std::nullopt;
        if (page && page->size() > 4) {
            tree[directory / shown.name] = {Node::file, std::string(page->begin(), page->end()), 0444};
        }
    }
    const std::string wwid = device.identity.wwid ? *device.identity.wwid : wwidOf(device);
    if (kernel >= 4004000 && !wwid.empty()) {
        tree[directory / "wwid"] = {Node::file, wwid + "\n", 0444};
    }
}

void addDevice(Tree &tree, const DeviceDescription &device, const TreePath &hostDirectory, unsigned long kernel)
{
    const std::string address = std::to_string(device.channel) + ":" + std::to_string(device.id);
    const std::string target = "target" + std::to_string(device.host) + ":" + address;
    const std::string name = std::to_string(device.host) + ":" + address + ":" + std::to_string(device.lun);
    const TreePath targetDirectory = hostDirectory / target;
    const TreePath directory = targetDirectory / name;
    tree[targetDirectory / "uevent"] = {Node::file, "DEVTYPE=scsi_target\n"};
    addLink(tree, scsiDevices() / target, targetDirectory);
    addLink(tree, scsiDevices() / name, directory);
    tree[directory / "vendor"] = {Node::file, padded(device.vendor, 8) + "\n"};
    tree[directory / "model"] = {Node::file, padded(device.model, 16) + "\n"};
    tree[directory / "rev"] = {Node::file, padded(device.revision, 4) + "\n"};
    tree[directory / "type"] = {Node::file, std::to_string(device.type) + "\n"};
    tree[directory / "scsi_level"] = {Node::file, std::to_string(device.ansiVersion + 1) + "\n"};
    tree[directory / "state"] = {Node::file, device.identity.state + "\n"};
    tree[directory / "power" / "runtime_status"] = {Node::file, device.identity.runtimeStatus + "\n", 0444};
    addPages(tree, device, directory, kernel);
    if (!device.node.empty() && device.hasBlocks()) {
        addBlock(tree, device, directory);
    } else if (!device.node.empty() && device.type == kTape) {
        addNode(tree, directory, "scsi_tape", device.node);
    }
    if (!device.genericNode.empty()) {
        const TreePath generic = addNode(tree, directory, "scsi_generic", device.genericNode);
        addLink(tree, directory / "generic", generic);
    }
}

} // namespace

void addSysfs(Tree &tree, const Description &description)
{
    tree[scsiDevices()] = {Node::directory, ""};
    tree[scsiHosts()] = {Node::directory, ""};
    HostPlaces places;
    for (const HostDescription &host : description.hosts) {
        const TreePath directory = places.directoryOf(host);
        addHost(tree, host, directory);
        for (const DeviceDescription &device : description.devices) {
            if (device.host == host.number) {
                addDevice(tree, device, directory, kernelNumber(description.kernel));
            }
        }
    }
}

} // namespace sim

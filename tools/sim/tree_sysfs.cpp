// SPDX-License-Identifier: Apache-2.0
// /sys of a machine: SCSI hosts and devices as the kernel (6.1) shows them, recorded in virtual machines.
#include "sim/device_number.h"
#include "sim/tree.h"

#include <cstdio>

namespace sim {

namespace {

std::string padded(const std::string &text, size_t length)
{
    std::string result = text.substr(0, length);
    result.resize(length, ' ');
    return result;
}

// Where each host hangs in the tree of devices: SATA drivers have a port per host, USB storage an interface, others the
// function of a PCI card.
class HostPlaces {
public:
    std::string directoryOf(const HostDescription &host)
    {
        const std::string name = "host" + std::to_string(host.number);
        const bool sata = host.driver == "ahci" || host.driver.starts_with("ata_") || host.driver.starts_with("sata_");
        if (sata) {
            return slotOf(host, 0x1f) + "/ata" + std::to_string(++ports_) + "/" + name;
        }
        if (host.driver.starts_with("usb")) {
            const std::string port = "2-" + std::to_string(++usbPorts_);
            return slotOf(host, 0x14) + "/usb2/" + port + "/" + port + ":1.0/" + name;
        }
        return slotOf(host, -1) + "/" + name;
    }

private:
    std::string slotOf(const HostDescription &host, int slot)
    {
        char address[32];
        std::snprintf(address, sizeof address, "0000:00:%02x.%d", static_cast<unsigned>(slot < 0 ? 1 + ++cards_ : slot),
                      slot == 0x1f ? 2 : 0);
        return "/sys/devices/pci0000:00/" + (host.pciAddress.empty() ? address : host.pciAddress);
    }

    int ports_ = 0;
    int usbPorts_ = 0;
    int cards_ = 0;
};

void addHost(Tree &tree, const HostDescription &host, const std::string &directory)
{
    const std::string name = "host" + std::to_string(host.number);
    const std::string inDevices = directory.substr(4); // without "/sys"
    tree[directory + "/uevent"] = {Node::file, "DEVTYPE=scsi_host\n"};
    tree[directory + "/scsi_host/" + name + "/proc_name"] = {Node::file, host.driver + "\n"};
    tree["/sys/bus/scsi/devices/" + name] = {Node::link, "../../.." + inDevices};
    tree["/sys/class/scsi_host/" + name] = {Node::link, "../.." + inDevices + "/scsi_host/" + name};
}

// The node's directory of a class, below the device's own.
std::string addNode(Tree &tree, const std::string &directory, const char *nodeClass, const std::string &node)
{
    std::string at = directory + "/" + nodeClass + "/" + node;
    const NodeNumber number = nodeNumber(node);
    tree[at + "/dev"] = {Node::file, std::to_string(number.major) + ":" + std::to_string(number.minor) + "\n"};
    tree[at + "/device"] = {Node::link, "../../../" + directory.substr(directory.rfind('/') + 1)};
    return at;
}

void addBlock(Tree &tree, const DeviceDescription &device, const std::string &directory)
{
    const std::string block = addNode(tree, directory, "block", device.node);
    tree[block + "/size"] = {Node::file, std::to_string(device.sectors) + "\n"};
    tree["/sys/block/" + device.node] = {Node::link, ".." + block.substr(4)};
}

void addDevice(Tree &tree, const DeviceDescription &device, const std::string &hostDirectory)
{
    const std::string address = std::to_string(device.channel) + ":" + std::to_string(device.id);
    const std::string target = "target" + std::to_string(device.host) + ":" + address;
    const std::string name = std::to_string(device.host) + ":" + address + ":" + std::to_string(device.lun);
    const std::string directory = hostDirectory + "/" + target + "/" + name;
    const std::string inDevices = hostDirectory.substr(4) + "/" + target;
    tree[hostDirectory + "/" + target + "/uevent"] = {Node::file, "DEVTYPE=scsi_target\n"};
    tree["/sys/bus/scsi/devices/" + target] = {Node::link, "../../.." + inDevices};
    tree["/sys/bus/scsi/devices/" + name] = {Node::link, "../../.." + inDevices + "/" + name};
    tree[directory + "/vendor"] = {Node::file, padded(device.vendor, 8) + "\n"};
    tree[directory + "/model"] = {Node::file, padded(device.model, 16) + "\n"};
    tree[directory + "/rev"] = {Node::file, padded(device.revision, 4) + "\n"};
    tree[directory + "/type"] = {Node::file, std::to_string(device.type) + "\n"};
    tree[directory + "/scsi_level"] = {Node::file, std::to_string(device.ansiVersion + 1) + "\n"};
    tree[directory + "/state"] = {Node::file, "running\n"};
    if (!device.node.empty() && (device.hasDiskName() || device.type == kCdrom || device.type == kWorm)) {
        addBlock(tree, device, directory);
    } else if (!device.node.empty() && device.type == kTape) {
        addNode(tree, directory, "scsi_tape", device.node);
    }
    if (!device.genericNode.empty()) {
        addNode(tree, directory, "scsi_generic", device.genericNode);
        tree[directory + "/generic"] = {Node::link, "scsi_generic/" + device.genericNode};
    }
}

} // namespace

void addSysfs(Tree &tree, const Description &description)
{
    tree["/sys/bus/scsi/devices"] = {Node::directory, ""};
    tree["/sys/class/scsi_host"] = {Node::directory, ""};
    HostPlaces places;
    for (const HostDescription &host : description.hosts) {
        const std::string directory = places.directoryOf(host);
        addHost(tree, host, directory);
        for (const DeviceDescription &device : description.devices) {
            if (device.host == host.number) {
                addDevice(tree, device, directory);
            }
        }
    }
}

} // namespace sim

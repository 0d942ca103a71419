// SPDX-License-Identifier: Apache-2.0
// /sys of a machine: SCSI hosts and devices as recorded in virtual machines with kernel 6.1.
#include "sim/node_names.h"
#include "sim/tree.h"
#include "sim/tree_block.h"
#include "sim/vpd_pages.h"

#include <array>
#include <cinttypes>
#include <cstdio>
#include <map>
#include <optional>
#include <string>
#include <utility>
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

// The directory of each host in the tree of devices: SATA drivers have a port per host, USB storage an interface,
// others the function of a PCI card.
class HostPlaces {
public:
    TreePath directoryOf(const HostDescription &host)
    {
        const std::string name = "host" + std::to_string(host.number);
        const std::string transport = transportOf(host);
        if (!host.path.empty()) {
            return TreePath("/sys/devices/" + host.path);
        }
        if (transport == "ata") {
            return slotOf(host, 0x1f) / ("ata" + std::to_string(++ports_)) / name;
        }
        if (transport == "usb") {
            const std::string port = "2-" + std::to_string(++usbPorts_);
            return slotOf(host, 0x14) / "usb2" / port / (port + ":1.0") / name;
        }
        if (transport == "virtio") {
            return slotOf(host, -1) / ("virtio" + std::to_string(virtioDevices_++)) / name;
        }
        return slotOf(host, -1) / name;
    }

private:
    static std::string transportOf(const HostDescription &host)
    {
        const std::string &driver = host.driver;
        if (!host.transport.empty()) {
            return host.transport;
        }
        const bool sata = driver == "ahci" || driver.starts_with("ata_") || driver.starts_with("sata_");
        return sata ? "ata" : driver.starts_with("usb") ? "usb" : "pci";
    }

    TreePath slotOf(const HostDescription &host, int slot)
    {
        char address[32];
        std::snprintf(address, sizeof address, "0000:00:%02x.%d", static_cast<unsigned>(slot < 0 ? 1 + ++cards_ : slot),
                      slot == 0x1f ? 2 : 0);
        return TreePath("/sys/devices/pci0000:00") / (host.pciAddress.empty() ? address : host.pciAddress);
    }

    int ports_ = 0;
    int usbPorts_ = 0;
    int virtioDevices_ = 0;
    int cards_ = 0;
};

// Where the targets of a host are: below the host, and with SAS below the end device at a port of the host.
class TargetPlaces {
public:
    TargetPlaces(const HostDescription &host, TreePath directory)
        : number_(std::to_string(host.number)), isSas_(host.transport == "sas"), directory_(std::move(directory))
    {
    }

    TreePath directoryOf(const std::string &target)
    {
        if (!isSas_) {
            return directory_ / target;
        }
        const size_t next = ports_.size();
        const std::string port = number_ + ":" + std::to_string(ports_.emplace(target, next).first->second);
        return directory_ / ("port-" + port) / ("end_device-" + port) / target;
    }
    bool isSas() const { return isSas_; }

private:
    std::string number_;
    bool isSas_;
    TreePath directory_;
    std::map<std::string, size_t> ports_; // by target
};

// The USB device to which an interface with a host belongs.
void addUsbDevice(Tree &tree, const UsbDescription &usb, const TreePath &directory)
{
    const auto add = [&](const char *name, const std::string &text) {
        if (!text.empty()) { // the kernel has no file for a text that the device does not have
            tree[directory / name] = {Node::file, text + "\n", 0444};
        }
    };
    add("idVendor", usb.vendorId);
    add("idProduct", usb.productId);
    add("manufacturer", usb.manufacturer);
    add("product", usb.product);
    add("serial", usb.serial);
}

void addHost(Tree &tree, const HostDescription &host, const TreePath &directory)
{
    const std::string name = "host" + std::to_string(host.number);
    tree[directory / "uevent"] = {Node::file, "DEVTYPE=scsi_host\n"};
    tree[directory / "scsi_host" / name / "proc_name"] = {Node::file, host.driver + "\n"};
    addLink(tree, scsiDevices() / name, directory);
    addLink(tree, scsiHosts() / name, directory / "scsi_host" / name);
    if (host.usb) {
        addUsbDevice(tree, *host.usb, TreePath(plainPath(directory.text() + "/../..")));
    }
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

// The address of a disk's port: usually the next number after the disk's name.
std::string sasAddressOf(const std::vector<uint8_t> &wwn)
{
    uint64_t number = 0;
    for (const uint8_t byte : wwn) {
        number = number << 8 | byte;
    }
    std::array<char, 32> text{};
    std::snprintf(text.data(), text.size(), "0x%016" PRIx64, number + 1);
    return text.data();
}

void addDevice(Tree &tree, const DeviceDescription &device, TargetPlaces &targets, unsigned long kernel)
{
    const std::string address = std::to_string(device.channel) + ":" + std::to_string(device.id);
    const std::string target = "target" + std::to_string(device.host) + ":" + address;
    const std::string name = device.address();
    const TreePath targetDirectory = device.path.empty()
                                         ? targets.directoryOf(target)
                                         : TreePath("/sys/devices/" + device.path.substr(0, device.path.rfind('/')));
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
    tree[directory / "power" / "runtime_status"] = {Node::file, device.power.runtimeStatus + "\n", 0444};
    addPages(tree, device, directory, kernel);
    if (targets.isSas() && device.identity.wwn.size() == 8) {
        tree[directory / "sas_address"] = {Node::file, sasAddressOf(device.identity.wwn) + "\n", 0444};
    }
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

// ---- enclosures: Documentation/ABI/testing/sysfs-class-enclosure ----

// The directory to which a link leads.
TreePath targetOf(const Tree &tree, const TreePath &link)
{
    return TreePath(plainPath(link.text() + "/../" + tree.at(link).content));
}

void addSlot(Tree &tree, const SlotDescription &slot, const TreePath &directory)
{
    const auto add = [&](const char *name, const std::string &text) {
        tree[directory / name] = {Node::file, text + "\n"};
    };
    add("active", "0");
    add("fault", slot.fault ? "1" : "0");
    add("locate", slot.locate ? "1" : "0");
    add("power_status", "on");
    add("slot", std::to_string(slot.number));
    add("status", slot.fault ? "critical" : slot.device.empty() ? "not installed" : "OK");
    add("type", "array device");
    if (!slot.device.empty()) {
        const TreePath device = targetOf(tree, scsiDevices() / slot.device);
        addLink(tree, directory / "device", device);
        addLink(tree, device / ("enclosure_device:" + slot.name), directory);
    }
}

void addEnclosure(Tree &tree, const DeviceDescription &device)
{
    const TreePath directory = targetOf(tree, scsiDevices() / device.address()) / "enclosure" / device.address();
    tree[directory / "components"] = {Node::file, std::to_string(device.slots.size()) + "\n"};
    tree[directory / "id"] = {Node::file, device.enclosureId + "\n"};
    addLink(tree, TreePath("/sys/class/enclosure") / device.address(), directory);
    addLink(tree, directory / "device", targetOf(tree, scsiDevices() / device.address()));
    for (const SlotDescription &slot : device.slots) {
        addSlot(tree, slot, directory / slot.name);
    }
}

} // namespace

void addSysfs(Tree &tree, const Description &description)
{
    tree[TreePath("/sys/block")] = {Node::directory, ""};
    tree[scsiDevices()] = {Node::directory, ""};
    tree[scsiHosts()] = {Node::directory, ""};
    HostPlaces places;
    for (const HostDescription &host : description.hosts) {
        const TreePath directory = places.directoryOf(host);
        addHost(tree, host, directory);
        TargetPlaces targets(host, directory);
        for (const DeviceDescription &device : description.devices) {
            if (device.host == host.number) {
                addDevice(tree, device, targets, kernelNumber(description.kernel));
            }
        }
    }
    for (const DeviceDescription &device : description.devices) {
        if (!device.slots.empty()) {
            addEnclosure(tree, device);
        }
    }
}

} // namespace sim

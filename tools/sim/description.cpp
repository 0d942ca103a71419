// SPDX-License-Identifier: Apache-2.0
#include "sim/description.h"

#include "sim/description_parts.h"
#include "sim/node_names.h"

#include <algorithm>
#include <cstdlib>
#include <set>
#include <stdexcept>

namespace sim {

namespace {

constexpr double kLongestClock = 1e9; // 32 years

void readHost(Fields fields, Description &description)
{
    HostDescription host;
    host.number = fields.number<int>("number", static_cast<int>(description.hosts.size()));
    host.driver = fields.fileName("driver", "ahci");
    host.pciAddress = fields.optionalFileName("pciAddress", "");
    host.transport = fields.has("transport") ? fields.oneOf("transport", {"pci", "ata", "sas", "usb", "virtio"}) : "";
    if (const std::optional<Fields> usb = fields.object("usb")) {
        if (host.transport != "usb" && !(host.transport.empty() && host.driver.starts_with("usb"))) {
            fields.fail("usb", "the transport is not \"usb\"");
        }
        host.usb = readUsb(*usb);
    }
    host.path = readPath(fields, "host" + std::to_string(host.number));
    for (const Fields &device : fields.objects("devices")) {
        description.devices.push_back(readDevice(device, host.number));
    }
    fields.finish();
    description.hosts.push_back(host);
}

// A relative name is one of the administrator's files: tavkit.conf, or a file of the agent's data directory.
TreePath pathOf(const Fields &fields, const std::string &name)
{
    try {
        if (name.empty() || name.starts_with('/')) {
            return TreePath(name);
        }
        const std::string directory =
            name == "tavkit.conf" ? std::string(kConfigurationRoot) : std::string(kAgentRoot) + "/data";
        return TreePath(directory + "/" + name);
    } catch (const std::invalid_argument &error) {
        fields.fail(name, error.what());
    }
}

void readFiles(Fields fields, Description &description)
{
    for (const std::string &name : fields.names()) {
        const TreePath path = pathOf(fields, name);
        description.files.emplace(path, fields.lines(name.c_str()));
    }
}

// /dev/null, /dev/shm and the like stay real: a simulated node of that name would never be seen.
void checkNode(const Fields &fields, const char *field, const std::string &node)
{
    if (!node.empty() && !isMachinePath("/dev/" + node)) {
        fields.fail(field, "/dev/" + node + " stays real");
    }
}

void checkNodes(const Fields &fields, const Description &description)
{
    for (const DeviceDescription &device : description.devices) {
        checkNode(fields, "hosts", device.node);
        checkNode(fields, "hosts", device.genericNode);
    }
    for (const DeviceDescription &device : description.allDevices()) {
        checkNode(fields, device.isIde() ? "ide" : "node", device.node);
    }
}

// Names nodes as the kernel does: in order, each kind counted separately. A device that was there before keeps its
// name.
void assignNodes(Description &description, const std::vector<DeviceDescription> &before)
{
    std::set<std::string> taken;
    for (DeviceDescription &device : description.devices) {
        const auto old = std::find_if(before.begin(), before.end(),
                                      [&](const DeviceDescription &other) { return isSameDevice(other, device); });
        if (old != before.end() && device.node.empty()) {
            device.node = old->node;
        }
        if (old != before.end() && device.genericNode.empty()) {
            device.genericNode = old->genericNode;
        }
        taken.insert(device.node);
        taken.insert(device.genericNode);
    }
    unsigned next[4] = {};
    const auto give = [&taken](std::string &node, unsigned &n, auto name) {
        while (node.empty()) {
            if (const std::string candidate = name(n++); !taken.contains(candidate)) {
                node = candidate;
            }
        }
        if (node == kNoNode) {
            node.clear();
        }
    };
    const auto numbered = [](const char *prefix) {
        return [prefix](unsigned n) { return prefix + std::to_string(n); };
    };
    for (DeviceDescription &device : description.devices) {
        if (device.hasDiskName()) {
            give(device.node, next[0], diskName);
        } else if (device.type == kCdrom || device.type == kWorm) {
            give(device.node, next[1], numbered("sr"));
        } else if (device.type == kTape) {
            give(device.node, next[2], numbered("st"));
        } else if (device.node == kNoNode) {
            device.node.clear();
        }
        give(device.genericNode, next[3], numbered("sg"));
    }
}

void checkAddresses(const Fields &fields, const Description &description)
{
    std::set<std::string> seen;
    const auto once = [&](const std::string &what) {
        if (!what.empty() && !seen.insert(what).second) {
            fields.fail("hosts", "duplicate " + what);
        }
    };
    for (const HostDescription &host : description.hosts) {
        once("host" + std::to_string(host.number));
    }
    for (const DeviceDescription &device : description.devices) {
        once(device.address());
        once(device.node);
        once(device.genericNode);
    }
    for (const DeviceDescription &device : description.allDevices()) {
        if (device.bus != Bus::scsi) {
            once(device.node);
        }
    }
}

void checkSlots(const Fields &fields, const Description &description)
{
    std::set<std::string> addresses;
    for (const DeviceDescription &device : description.devices) {
        addresses.insert(device.address());
    }
    for (const DeviceDescription &device : description.devices) {
        for (const SlotDescription &slot : device.slots) {
            if (!slot.device.empty() && !addresses.contains(slot.device)) {
                fields.fail("hosts", "slot " + slot.name + ": there is no device " + slot.device);
            }
        }
    }
}

void readMachine(Fields fields, Description &description, const std::vector<DeviceDescription> &before)
{
    description.kernel = fields.text("kernel", description.kernel);
    const bool old = kernelNumber(description.kernel) < 2006000;
    description.sysfs = fields.flag("sysfs", !old);
    description.procfs = fields.flag("procfs", old);
    description.clock = fields.seconds("clock", kLongestClock);
    description.seed = fields.number<uint64_t>("seed", 1);
    for (const Fields &host : fields.objects("hosts")) {
        readHost(host, description);
    }
    if (std::optional<Fields> ide = fields.object("ide")) {
        description.ide = true;
        for (const Fields &channel : ide->objects("channels")) {
            description.channels.push_back(readChannel(channel, description.channels.size()));
        }
        for (const Fields &drive : ide->objects("drives")) {
            description.drives.push_back(readDrive(drive));
        }
        ide->finish();
    }
    for (const Fields &controller : fields.objects("nvme")) {
        readNvme(controller, description);
    }
    for (const Fields &disk : fields.objects("virtio")) {
        description.virtio.push_back(readVirtio(disk, description.virtio.size()));
    }
    for (const Fields &card : fields.objects("mmc")) {
        description.mmc.push_back(readMmc(card, description.mmc.size()));
    }
    assignNodes(description, before);
    checkAddresses(fields, description);
    checkNodes(fields, description);
    checkSlots(fields, description);
    description.interrupts = interruptsText(fields, description);
    description.ioports = ioportsText(fields, description);
    if (const std::optional<Fields> files = fields.object("files")) {
        readFiles(*files, description);
    }
    if (std::optional<Fields> agent = fields.object("agent")) {
        description.libraries = agent->flag("libraries", false);
        description.libraryDirectory = agent->text("libraryDirectory", "");
        agent->finish();
    }
    fields.finish();
}

} // namespace

Description parseDescription(const std::string &json, const std::vector<DeviceDescription> &before)
{
    Description description;
    const nlohmann::json parsed = parseJson(json);
    readMachine(Fields(parsed), description, before);
    return description;
}

std::vector<DeviceDescription> Description::allDevices() const
{
    std::vector<DeviceDescription> all = devices;
    for (const IdeDrive &drive : drives) {
        all.push_back(drive.device);
    }
    std::set<std::string> heads; // one node for all paths of a namespace
    for (const std::shared_ptr<const NvmeController> &controller : nvme) {
        all.push_back(controller->device);
        all.back().nvme = controller;
        for (const NvmeNamespace &space : controller->namespaces) {
            if (heads.insert(space.node).second) {
                all.push_back(space.device);
                all.back().nvme = controller;
            }
        }
    }
    for (const std::vector<CardDescription> *cards : {&virtio, &mmc}) {
        for (const CardDescription &card : *cards) {
            all.push_back(card.device);
        }
    }
    return all;
}

std::string DeviceDescription::address() const
{
    return std::to_string(host) + ":" + std::to_string(channel) + ":" + std::to_string(id) + ":" + std::to_string(lun);
}

bool isSameDevice(const DeviceDescription &a, const DeviceDescription &b)
{
    return a.bus == b.bus && a.host == b.host && a.channel == b.channel && a.id == b.id && a.lun == b.lun &&
           a.serial == b.serial && a.type == b.type && (a.bus == Bus::scsi || a.node == b.node);
}

unsigned long kernelNumber(const std::string &release)
{
    unsigned long number = 0;
    const char *text = release.c_str();
    for (const unsigned long weight : {1000000UL, 1000UL, 1UL}) {
        char *end = nullptr;
        number += std::strtoul(text, &end, 10) * weight;
        if (end == text || *end != '.') {
            break;
        }
        text = end + 1;
    }
    return number;
}

} // namespace sim

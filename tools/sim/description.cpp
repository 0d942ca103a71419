// SPDX-License-Identifier: Apache-2.0
#include "sim/description.h"

#include "sim/describe.h"
#include "sim/paths.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <set>

namespace sim {

namespace {

constexpr const char *kNoNode = "-"; // while reading: the description wants no node, not a name of our choice

// A default is worked out from the capacity as the kernel does for disks that report none: 255 heads and 63 sectors, or
// 64 and 32 below a gibibyte.
Geometry defaultGeometry(uint64_t sectors)
{
    const bool small = sectors < (1U << 21);
    const unsigned heads = small ? 64 : 255;
    const unsigned perTrack = small ? 32 : 63;
    const unsigned perCylinder = heads * perTrack;
    return {heads, perTrack, static_cast<unsigned>(sectors / perCylinder)};
}

void readSize(Fields &fields, DeviceDescription &device, uint64_t defaultBytes)
{
    device.sectorSize =
        fields.number<unsigned>("sectorSize", device.type == kCdrom || device.type == kWorm ? 2048 : 512);
    const uint64_t bytes = fields.number<uint64_t>("sizeBytes", defaultBytes);
    device.sectors = fields.number<uint64_t>("sectors", bytes / 512);
    device.geometry = defaultGeometry(device.sectors);
    if (const std::optional<Fields> geometry = fields.object("geometry", true)) {
        Fields of = *geometry;
        device.geometry = Geometry{of.number<unsigned>("heads", 255), of.number<unsigned>("sectors", 63),
                                   of.number<unsigned>("cylinders", device.geometry->cylinders)};
        of.finish();
    } else if (fields.isNull("geometry")) {
        device.geometry.reset();
    }
}

void readSmart(Fields fields, SmartDescription &smart)
{
    smart.supported = fields.flag("supported", true);
    smart.enabled = fields.flag("enabled", smart.supported);
    smart.canEnable = fields.flag("canEnable", true);
    if (fields.flag("failing", false)) {
        smart.lbaMid = 0xF4;
        smart.lbaHigh = 0x2C;
    }
    const std::vector<uint8_t> status = fields.bytes("status");
    if (status.size() == 2) {
        smart.lbaMid = status[0];
        smart.lbaHigh = status[1];
    } else if (!status.empty()) {
        fields.fail("status", "two bytes, LBA mid and LBA high, are wanted");
    }
    for (Fields of : fields.objects("attributes")) {
        SmartAttribute attribute;
        attribute.id = of.number<uint8_t>("id", 0);
        attribute.flags = of.number<unsigned>("flags", 0x32);
        attribute.current = of.number<uint8_t>("current", 100);
        attribute.worst = of.number<uint8_t>("worst", attribute.current);
        attribute.threshold = of.number<uint8_t>("threshold", 0);
        const std::vector<uint8_t> raw = of.bytes("raw");
        for (size_t i = 0; i < raw.size() && i < attribute.raw.size(); ++i) {
            attribute.raw[i] = raw[i];
        }
        smart.attributes.push_back(attribute);
        of.finish();
    }
    fields.finish();
}

void readExceptions(Fields fields, ExceptionsDescription &exceptions)
{
    exceptions.supported = fields.flag("supported", exceptions.supported);
    exceptions.sixByte = fields.flag("modeSense6", true);
    exceptions.tenByte = fields.flag("modeSense10", true);
    exceptions.dexcpt = fields.flag("dexcpt", false);
    exceptions.mrie = fields.number<int>("mrie", 0);
    exceptions.fixedMrie = fields.number<int>("fixedMrie", -1);
    exceptions.savable = fields.flag("savable", false);
    exceptions.changeableDexcpt = fields.flag("changeableDexcpt", true);
    exceptions.changeableMrie = fields.flag("changeableMrie", true);
    exceptions.blockDescriptor = fields.flag("blockDescriptor", true);
    exceptions.canSelect = fields.flag("canSelect", true);
    exceptions.unitAttention = fields.flag("unitAttention", false);
    exceptions.logPage = fields.flag("logPage", exceptions.supported);
    exceptions.predicting = fields.flag("predicting", false);
    fields.finish();
}

void readFault(Fields fields, std::vector<Fault> &faults)
{
    Fault fault;
    fault.on = kindOf(fields, "on");
    fault.nth = fields.number<unsigned>("nth", 0);
    fault.every = fields.number<unsigned>("every", 1);
    fault.probability = fields.number<double>("probability", 1.0);
    fault.delayMs = fields.number<unsigned>("delayMs", 0);
    fault.hangSeconds = fields.number<double>("hangSeconds", 0.0);
    fault.errorNumber = errorNumberOf(fields, "errno");
    fault.hostStatus = fields.number<int>("hostStatus", 0);
    fault.driverStatus = fields.number<int>("driverStatus", 0);
    fault.sense = fields.bytes("sense");
    if (fault.sense.size() > 252) {
        fields.fail("sense", "at most 252 bytes are possible");
    }
    fields.finish();
    faults.push_back(fault);
}

void readCommon(Fields &fields, DeviceDescription &device)
{
    device.identifyBy = fields.text("identifyBy", device.type == kCdrom ? "packet" : "device");
    if (device.identifyBy != "device" && device.identifyBy != "packet" && device.identifyBy != "none") {
        fields.fail("identifyBy", "\"device\", \"packet\" or \"none\" is wanted");
    }
    for (const auto &[word, value] : fields.numbersByNumber("identifyWords")) {
        if (word > 255 || value > 0xFFFF) {
            fields.fail("identifyWords", "words 0 to 255 with 16 bits are wanted");
        }
        device.identifyWords[word] = value;
    }
    device.openError = errorNumberOf(fields, "openError");
    device.delayMs = fields.number<unsigned>("delayMs", 0);
    device.smart.supported = device.type == kDisk;
    if (const std::optional<Fields> smart = fields.object("smart")) {
        readSmart(*smart, device.smart);
    }
    for (const Fields &fault : fields.objects("faults")) {
        readFault(fault, device.faults);
    }
}

DeviceDescription readDevice(Fields fields, int host)
{
    DeviceDescription device;
    device.host = host;
    device.channel = fields.number<int>("channel", 0);
    device.id = fields.number<int>("id", 0);
    device.lun = fields.number<int>("lun", 0);
    device.type = peripheralTypeOf(fields, "type");
    device.ata = fields.flag("ata", false);
    const bool ataDisk = device.ata && device.type == kDisk;
    device.vendor = fields.text("vendor", ataDisk ? "ATA" : "TEST");
    device.model = fields.text("model", "DEVICE");
    device.revision = fields.text("revision", "1.0");
    device.serial = fields.text("serial", "");
    device.ansiVersion = fields.number<unsigned>("ansiVersion", 5);
    device.descriptorSense = fields.flag("descriptorSense", false);
    const bool hasBlocks = device.hasDiskName() || device.type == kCdrom || device.type == kWorm;
    readSize(fields, device, device.hasDiskName() ? uint64_t(100) << 30 : hasBlocks ? uint64_t(8) << 20 : 0);
    device.node = fields.text("node", fields.isNull("node") ? kNoNode : "");
    device.genericNode = fields.text("genericNode", fields.isNull("genericNode") ? kNoNode : "");
    readCommon(fields, device);
    device.exceptions.supported = device.exceptions.logPage = device.type == kDisk && !device.ata;
    if (const std::optional<Fields> exceptions = fields.object("exceptions")) {
        readExceptions(*exceptions, device.exceptions);
    }
    fields.finish();
    return device;
}

void readHost(Fields fields, Description &description)
{
    HostDescription host;
    host.number = fields.number<int>("number", static_cast<int>(description.hosts.size()));
    host.driver = fields.text("driver", "ahci");
    host.pciAddress = fields.text("pciAddress", "");
    for (const Fields &device : fields.objects("devices")) {
        description.devices.push_back(readDevice(device, host.number));
    }
    fields.finish();
    description.hosts.push_back(host);
}

IdeChannel readChannel(Fields fields, size_t position)
{
    IdeChannel channel;
    channel.name = fields.text("name", "ide" + std::to_string(position));
    channel.model = fields.text("model", "pci");
    channel.mate = fields.text("mate", "(none)");
    channel.channel = fields.text("channel", std::to_string(position));
    fields.finish();
    return channel;
}

std::string geometryText(const Geometry &geometry)
{
    char text[128];
    std::snprintf(text, sizeof text, "physical     %u/%u/%u\nlogical      %u/255/63\n", geometry.cylinders,
                  geometry.heads, geometry.sectors,
                  geometry.cylinders * geometry.heads * geometry.sectors / (255 * 63));
    return text;
}

// The kernel's IDE names tell the channel: hda and hdb hang on the first.
std::string channelOf(const std::string &name)
{
    return name.size() > 2 ? "ide" + std::to_string((name[2] - 'a') / 2) : "ide0";
}

IdeDrive readDrive(Fields fields)
{
    IdeDrive drive;
    drive.name = fields.text("name", "hda");
    drive.channel = fields.text("channel", channelOf(drive.name));
    drive.media = fields.text("media", "disk");
    const bool disk = drive.media == "disk";
    DeviceDescription &device = drive.device;
    device.type = disk ? kDisk : drive.media == "cdrom" ? kCdrom : drive.media == "tape" ? kTape : kOptical;
    device.ata = true;
    drive.model = device.model = fields.text("model", "DRIVE");
    device.revision = fields.text("revision", "1.0");
    device.serial = fields.text("serial", "");
    const std::string driver = fields.text("driver", disk ? "ide-disk" : "ide-cdrom");
    const std::string version = fields.text("version", "");
    drive.driver = version.empty() ? driver : driver + " version " + version;
    device.node = drive.name;
    const bool geometryIsText = fields.isText("geometry");
    const std::string text = geometryIsText ? fields.text("geometry", "") : "";
    readSize(fields, device, disk ? uint64_t(40) << 30 : uint64_t(8) << 20);
    if (geometryIsText) {
        drive.geometry = text;
    } else if (disk && device.geometry) {
        drive.geometry = geometryText({std::min(device.geometry->cylinders, 16383U), 16, 63});
        if (fields.has("geometry")) {
            drive.geometry = geometryText(*device.geometry);
        }
    }
    if (!fields.isNull("capacity")) {
        drive.capacity = fields.textOrNumber("capacity", std::to_string(device.sectors));
    }
    if (disk && !fields.isNull("cache")) {
        drive.cache = fields.textOrNumber("cache", "2048");
    }
    readCommon(fields, device);
    fields.finish();
    return drive;
}

// A plain name is one of the administrator's files; anything else is told by its whole path.
std::string wholePath(const Fields &fields, const std::string &name)
{
    if (name == "tavkit.conf") {
        return std::string(kConfigurationRoot) + "/" + name;
    }
    if (!name.starts_with('/')) {
        return std::string(kAgentRoot) + "/data/" + name;
    }
    std::string path = plainPath(name);
    if (!isMachinePath(path)) {
        fields.fail(name.c_str(), "the path is none of the machine's");
    }
    return path;
}

// Names are given out as the kernel does: in order, each kind counted by itself; a device that was there before keeps
// its.
void giveNodes(Description &description, const std::vector<DeviceDescription> &before)
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
            fields.fail("hosts", ("there are two of " + what).c_str());
        }
    };
    for (const HostDescription &host : description.hosts) {
        once("host" + std::to_string(host.number));
    }
    for (const DeviceDescription &device : description.devices) {
        once(std::to_string(device.host) + ":" + std::to_string(device.channel) + ":" + std::to_string(device.id) +
             ":" + std::to_string(device.lun));
        once(device.node);
        once(device.genericNode);
    }
    for (const IdeDrive &drive : description.drives) {
        once(drive.name);
    }
}

void readMachine(Fields fields, Description &description, const std::vector<DeviceDescription> &before)
{
    description.kernel = fields.text("kernel", description.kernel);
    const bool old = kernelNumber(description.kernel) < 2006000;
    description.sysfs = fields.flag("sysfs", !old);
    description.procfs = fields.flag("procfs", old);
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
    giveNodes(description, before);
    checkAddresses(fields, description);
    description.interrupts = interruptsText(fields, description);
    description.ioports = ioportsText(fields, description);
    for (const auto &[name, content] : fields.texts("files")) {
        description.files[wholePath(fields, name)] = content;
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
    const ParsedJson parsed(json);
    readMachine(parsed.top(), description, before);
    return description;
}

bool isSameDevice(const DeviceDescription &a, const DeviceDescription &b)
{
    return a.host == b.host && a.channel == b.channel && a.id == b.id && a.lun == b.lun && a.serial == b.serial &&
           a.type == b.type && (!a.isIde() || a.node == b.node);
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

std::string diskName(unsigned n)
{
    std::string letters;
    for (unsigned rest = n + 1; rest != 0; rest = (rest - 1) / 26) {
        letters.insert(letters.begin(), static_cast<char>('a' + (rest - 1) % 26));
    }
    return "sd" + letters;
}

} // namespace sim

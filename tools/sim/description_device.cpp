// SPDX-License-Identifier: Apache-2.0
// Devices of a description: size, ATA SMART, informational exceptions, faults.
#include "sim/description_parts.h"

#include <algorithm>

namespace sim {

namespace {

// The geometry that the kernel computes for disks that report none: 255 heads and 63 sectors per track, 64 and 32 below
// 1 GiB.
Geometry defaultGeometry(uint64_t sectors)
{
    const bool small = sectors < (1U << 21);
    const unsigned heads = small ? 64 : 255;
    const unsigned perTrack = small ? 32 : 63;
    const unsigned perCylinder = heads * perTrack;
    return {heads, perTrack, static_cast<unsigned>(sectors / perCylinder)};
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
        fields.fail("status", "expected two bytes: LBA mid and LBA high");
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
    fault.on = fields.requestKind("on");
    fault.nth = fields.number<unsigned>("nth", 0);
    fault.every = fields.number<unsigned>("every", 1);
    fault.probability = fields.number<double>("probability", 1.0);
    fault.delayMs = fields.number<unsigned>("delayMs", 0);
    fault.hangSeconds = fields.seconds("hangSeconds");
    fault.hang = fields.flag("hang", false);
    fault.errorNumber = fields.errorNumber("errno");
    fault.hostStatus = fields.number<int>("hostStatus", 0);
    fault.driverStatus = fields.number<int>("driverStatus", 0);
    fault.nvmeStatus = fields.number<uint16_t>("nvmeStatus", 0);
    fault.sense = fields.bytes("sense");
    if (fault.sense.size() > 252) {
        fields.fail("sense", "expected at most 252 bytes");
    }
    fields.finish();
    faults.push_back(fault);
}

void readReply(Fields fields, std::vector<RecordedReply> &replies)
{
    RecordedReply reply;
    reply.cdb = fields.bytes("cdb");
    reply.data = fields.bytes("data");
    reply.data.resize(std::max<size_t>(reply.data.size(), fields.number<uint16_t>("length", 0)));
    reply.sense = fields.bytes("sense");
    reply.status = fields.number<uint8_t>("status", reply.sense.empty() ? 0 : 2);
    reply.hostStatus = fields.number<uint8_t>("hostStatus", 0);
    reply.driverStatus = fields.number<uint8_t>("driverStatus", 0);
    reply.errorNumber = fields.errorNumber("errno");
    if (reply.cdb.empty()) {
        fields.fail("cdb", "expected the command");
    }
    fields.finish();
    replies.push_back(reply);
}

} // namespace

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

void readFaults(Fields &fields, DeviceDescription &device)
{
    device.openError = fields.errorNumber("openError");
    device.writeOpenError = fields.errorNumber("writeOpenError");
    device.delayMs = fields.number<unsigned>("delayMs", 0);
    for (const Fields &fault : fields.objects("faults")) {
        readFault(fault, device.faults);
    }
}

void readBehaviour(Fields &fields, DeviceDescription &device)
{
    device.identifyBy = fields.text("identifyBy", device.type == kCdrom ? "packet" : "device");
    if (device.identifyBy != "device" && device.identifyBy != "packet" && device.identifyBy != "none") {
        fields.fail("identifyBy", "expected \"device\", \"packet\" or \"none\"");
    }
    for (const auto &[word, value] : fields.numbersByNumber("identifyWords")) {
        if (word > 255 || value > 0xFFFF) {
            fields.fail("identifyWords", "expected words 0 to 255 with values of 16 bits");
        }
        device.identifyWords[word] = value;
    }
    device.smart.supported = device.type == kDisk || device.isAtaDisk();
    if (const std::optional<Fields> smart = fields.object("smart")) {
        readSmart(*smart, device.smart);
    }
    readFaults(fields, device);
}

DeviceDescription readDevice(Fields fields, int host)
{
    DeviceDescription device;
    device.host = host;
    device.channel = fields.number<int>("channel", 0);
    device.id = fields.number<int>("id", 0);
    device.lun = fields.number<int>("lun", 0);
    device.type = fields.peripheralType("type");
    device.ata = fields.flag("ata", false);
    device.vendor = fields.text("vendor", device.isAtaDisk() ? "ATA" : "TEST");
    device.model = fields.text("model", "DEVICE");
    device.revision = fields.text("revision", "1.0");
    device.serial = fields.text("serial", "");
    device.ansiVersion = fields.number<unsigned>("ansiVersion", 5);
    device.descriptorSense = fields.flag("descriptorSense", false);
    device.fixedAtaStatus = fields.oneOf("ataStatus", {"descriptor", "fixed"}) == "fixed";
    readSize(fields, device, device.hasDiskName() ? uint64_t(100) << 30 : device.hasBlocks() ? uint64_t(8) << 20 : 0);
    device.node = fields.isNull("node") ? kNoNode : fields.optionalFileName("node", "");
    device.genericNode = fields.isNull("genericNode") ? kNoNode : fields.optionalFileName("genericNode", "");
    readBehaviour(fields, device);
    device.sat = fields.flag("sat", false);
    if (device.sat && device.ata) {
        fields.fail("sat", "an ATA device of libata has no other translator");
    }
    readSysfs(fields, device);
    readLogs(fields, device);
    device.path = readPath(fields, device.address());
    for (const Fields &reply : fields.objects("replies")) {
        readReply(reply, device.replies);
    }
    device.exceptions.supported = device.exceptions.logPage =
        (device.type == kDisk || device.type == kZoned) && !device.takesAta();
    if (const std::optional<Fields> exceptions = fields.object("exceptions")) {
        readExceptions(*exceptions, device.exceptions);
    }
    fields.finish();
    return device;
}

} // namespace sim

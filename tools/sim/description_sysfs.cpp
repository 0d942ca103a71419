// SPDX-License-Identifier: Apache-2.0
// Fields of a SCSI device that are about what the kernel shows in sysfs: identity, power, block attributes.
#include "sim/description_parts.h"

#include <algorithm>
#include <bit>
#include <set>
#include <stdexcept>
#include <string>

namespace sim {

namespace {

void readWwn(Fields &fields, IdentityDescription &identity)
{
    identity.wwn = fields.bytes("wwn");
    if (!identity.wwn.empty() && identity.wwn.size() != 8 && identity.wwn.size() != 16) {
        fields.fail("wwn", "expected 16 or 32 hexadecimal digits");
    }
}

void readIdentity(Fields &fields, IdentityDescription &identity)
{
    readWwn(fields, identity);
    if (const std::optional<Fields> pages = fields.object("vpdPages")) {
        identity.vpdPages = readPages(*pages);
    }
    if (fields.has("wwid")) {
        identity.wwid = fields.text("wwid", "");
    }
    identity.state = fields.oneOf("state", {"running", "created", "cancel", "deleted", "quiesce", "offline",
                                            "transport-offline", "blocked", "created-blocked"});
}

bool isSectorSize(unsigned bytes)
{
    return bytes >= 512 && bytes <= 65536 && std::has_single_bit(bytes);
}

void readPower(Fields fields, PowerDescription &power)
{
    const std::string state = fields.oneOf("state", {"active", "idle", "standby", "sleep"});
    power.state = state == "idle"      ? Power::idle
                  : state == "standby" ? Power::standby
                  : state == "sleep"   ? Power::sleep
                                       : Power::active;
    power.idleTimer = fields.number<unsigned>("idleTimer", 0);
    power.standbyTimer = fields.number<unsigned>("standbyTimer", 0);
    power.spinUpMs = fields.number<unsigned>("spinUpMs", 0);
    power.reported = fields.flag("reported", true);
    power.runtimeStatus =
        fields.oneOf("runtimeStatus", {"active", "suspended", "suspending", "resuming", "error", "unsupported"});
    fields.finish();
}

void readSlots(Fields &fields, DeviceDescription &device)
{
    device.enclosureId = fields.text("enclosureId", "");
    std::set<std::string> names;
    for (Fields of : fields.objects("slots")) {
        SlotDescription slot;
        slot.name = of.fileName("name", "Slot " + std::to_string(device.slots.size()));
        slot.number = of.number<unsigned>("number", static_cast<unsigned>(device.slots.size()));
        slot.device = of.text("device", "");
        slot.fault = of.flag("fault", false);
        slot.locate = of.flag("locate", false);
        of.finish();
        if (!names.insert(slot.name).second) {
            of.fail("name", "duplicate " + slot.name);
        }
        device.slots.push_back(slot);
    }
    if (!device.slots.empty() && device.type != kEnclosure) {
        fields.fail("slots", "only a device of type \"enclosure\" has slots");
    }
}

} // namespace

void readBlock(Fields &fields, DeviceDescription &device)
{
    BlockDescription &block = device.block;
    block.physicalSectorSize = fields.number<unsigned>("physicalSectorSize", 0);
    if (block.physicalSectorSize != 0 && !isSectorSize(block.physicalSectorSize)) {
        fields.fail("physicalSectorSize", "expected a power of 2 from 512 to 65536");
    }
    if (fields.has("rotationRate")) {
        block.rotationRate = fields.number<uint16_t>("rotationRate", 0);
    }
    if (std::optional<Fields> io = fields.object("io")) {
        block.reads = io->number<uint64_t>("reads", 0);
        block.writes = io->number<uint64_t>("writes", 0);
        io->finish();
    }
    block.removable = fields.flag("removable", device.type == kCdrom);
    block.readOnly = fields.flag("readOnly", device.type == kCdrom);
}

std::string readPath(Fields &fields, const std::string &name)
{
    std::string path = fields.text("path", "");
    if (path.empty()) {
        return path;
    }
    try {
        const TreePath directory("/sys/devices/" + path);
        if (directory.name() != name) {
            fields.fail("path", "expected a path that ends in " + name);
        }
        return path;
    } catch (const std::invalid_argument &error) {
        fields.fail("path", error.what());
    }
}

UsbDescription readUsb(Fields fields)
{
    const auto id = [&fields](const char *name, const char *otherwise) {
        std::string text = fields.text(name, otherwise);
        if (text.size() != 4 || text.find_first_not_of("0123456789abcdef") != text.npos) {
            fields.fail(name, "expected 4 hexadecimal digits in lower case");
        }
        return text;
    };
    UsbDescription usb;
    usb.vendorId = id("vendorId", "1d6b");
    usb.productId = id("productId", "0104");
    usb.manufacturer = fields.text("manufacturer", "");
    usb.product = fields.text("product", "");
    usb.serial = fields.text("serial", "");
    fields.finish();
    return usb;
}

void readSysfs(Fields &fields, DeviceDescription &device)
{
    readIdentity(fields, device.identity);
    readBlock(fields, device);
    readSlots(fields, device);
    if (const std::optional<Fields> power = fields.object("power")) {
        readPower(*power, device.power);
    }
}

} // namespace sim

// SPDX-License-Identifier: Apache-2.0
// Fields of a SCSI device that are about what the kernel shows in sysfs: identity, power, block attributes.
#include "sim/description_parts.h"

#include <algorithm>
#include <bit>
#include <charconv>
#include <set>
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

// The kernel keeps pages of at most 64 KiB; longer ones would not fit into the page's length.
void readVpdPages(Fields fields, IdentityDescription &identity)
{
    for (const std::string &name : fields.names()) {
        uint8_t page = 0;
        const char *const end = name.data() + name.size();
        const auto [rest, error] = std::from_chars(name.data(), end, page, 16);
        if (name == "comment") {
            continue;
        }
        if (error != std::errc() || rest != end || name.size() != 2) {
            fields.fail(name, "expected a page by two hexadecimal digits, such as \"83\"");
        }
        if (fields.isNull(name.c_str())) {
            identity.vpdPages[page] = std::nullopt;
            continue;
        }
        identity.vpdPages[page] = fields.bytes(name.c_str());
        if (identity.vpdPages[page]->size() > 0xFFFF) {
            fields.fail(name, "expected at most 65535 bytes");
        }
    }
}

void readIdentity(Fields &fields, IdentityDescription &identity)
{
    readWwn(fields, identity);
    if (const std::optional<Fields> pages = fields.object("vpdPages")) {
        readVpdPages(*pages, identity);
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

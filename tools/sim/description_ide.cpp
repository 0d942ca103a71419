// SPDX-License-Identifier: Apache-2.0
// IDE channels and drives of a description.
#include "sim/description_parts.h"

#include <algorithm>
#include <cstdio>

namespace sim {

namespace {

std::string geometryText(const Geometry &geometry)
{
    char text[128];
    std::snprintf(text, sizeof text, "physical     %u/%u/%u\nlogical      %u/255/63\n", geometry.cylinders,
                  geometry.heads, geometry.sectors,
                  geometry.cylinders * geometry.heads * geometry.sectors / (255 * 63));
    return text;
}

// By the kernel's names of IDE drives: hda and hdb are on the first channel, hdc and hdd on the second.
std::string channelOf(const std::string &name)
{
    return name.size() > 2 ? "ide" + std::to_string((name[2] - 'a') / 2) : "ide0";
}

} // namespace

IdeChannel readChannel(Fields fields, size_t position)
{
    IdeChannel channel;
    channel.name = fields.fileName("name", "ide" + std::to_string(position));
    channel.model = fields.text("model", "pci");
    channel.mate = fields.text("mate", "(none)");
    channel.channel = fields.text("channel", std::to_string(position));
    fields.finish();
    return channel;
}

IdeDrive readDrive(Fields fields)
{
    IdeDrive drive;
    drive.name = fields.fileName("name", "hda");
    drive.channel = fields.fileName("channel", channelOf(drive.name));
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
    device.bus = Bus::ide;
    readBehaviour(fields, device);
    fields.finish();
    return drive;
}

} // namespace sim

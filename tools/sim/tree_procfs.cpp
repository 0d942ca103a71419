// SPDX-License-Identifier: Apache-2.0
// /proc/scsi and /proc/ide of a machine as recorded with kernel 5.10.
#include "sim/tree.h"

#include <algorithm>
#include <cstdio>

namespace sim {

namespace {

// Names of the peripheral device types in /proc/scsi/scsi.
const char *typeText(int type)
{
    constexpr const char *kTypes[] = {
        "Direct-Access",  "Sequential-Access", "Printer",        "Processor", "WORM",    "CD-ROM", "Scanner",
        "Optical Device", "Medium Changer",    "Communications", "ASC IT8",   "ASC IT8", "RAID",   "Enclosure"};
    return type >= 0 && type < static_cast<int>(std::size(kTypes)) ? kTypes[type] : "Unknown";
}

std::string deviceText(const DeviceDescription &device)
{
    char text[512];
    std::snprintf(text, sizeof text,
                  "Host: scsi%d Channel: %02d Id: %02d Lun: %02d\n"
                  "  Vendor: %-8.8s Model: %-16.16s Rev: %-4.4s\n"
                  "  Type:   %-17s                ANSI  SCSI revision: %02x\n",
                  device.host, device.channel, device.id, device.lun, device.vendor.c_str(), device.model.c_str(),
                  device.revision.c_str(), typeText(device.type), device.ansiVersion);
    return text;
}

} // namespace

void addProcScsi(Tree &tree, const Description &description)
{
    const TreePath scsi("/proc/scsi");
    std::string all = "Attached devices: \n";
    if (description.devices.empty()) {
        all = "Attached devices: none\n";
    }
    std::vector<DeviceDescription> devices = description.devices;
    std::stable_sort(devices.begin(), devices.end(), [](const auto &a, const auto &b) { return a.host < b.host; });
    for (const DeviceDescription &device : devices) {
        all += deviceText(device);
    }
    tree[scsi / "scsi"] = {Node::file, all};
    for (const HostDescription &host : description.hosts) {
        tree[scsi / host.driver / std::to_string(host.number)] = {Node::file, host.driver + " adapter\n"};
    }
}

void addProcIde(Tree &tree, const Description &description)
{
    const TreePath ide("/proc/ide");
    tree[ide] = {Node::directory, ""};
    std::string drivers;
    for (const IdeChannel &channel : description.channels) {
        const TreePath directory = ide / channel.name;
        tree[directory / "channel"] = {Node::file, channel.channel + "\n"};
        tree[directory / "model"] = {Node::file, channel.model + "\n"};
        tree[directory / "mate"] = {Node::file, channel.mate + "\n"};
    }
    for (const IdeDrive &drive : description.drives) {
        const TreePath directory = ide / drive.channel / drive.name;
        tree[directory / "media"] = {Node::file, drive.media + "\n"};
        tree[directory / "model"] = {Node::file, drive.model + "\n"};
        tree[directory / "driver"] = {Node::file, drive.driver + "\n"};
        const auto add = [&](const char *name, const std::optional<std::string> &content) {
            if (content) {
                tree[directory / name] = {Node::file, content->ends_with('\n') ? *content : *content + "\n"};
            }
        };
        add("geometry", drive.geometry);
        add("capacity", drive.capacity);
        add("cache", drive.cache);
        tree[ide / drive.name] = {Node::link, directory.relativeTo(ide / drive.name)};
        if (drivers.find(drive.driver + "\n") == drivers.npos) {
            drivers += drive.driver + "\n";
        }
    }
    tree[ide / "drivers"] = {Node::file, drivers};
}

} // namespace sim

// SPDX-License-Identifier: Apache-2.0
#include "disks/find/describe.h"

#include "disks/bytes.h"
#include "disks/find/card_life.h"
#include "disks/find/place.h"
#include "disks/identity/identity.h"

#include <charconv>
#include <climits>
#include <cstdio>
#include <cstring>

namespace tavstrg::disks {
namespace {

constexpr size_t kTextRoom = 256;
constexpr size_t kVpdRoom = 1024;      // bytes of a page that are looked at
constexpr uint64_t kSectorBytes = 512; // of the attribute "size", whatever the disk's sectors are

template <size_t N> void readText(const AttributeDirectory &from, const char *name, char (&to)[N])
{
    char buffer[kTextRoom];
    copyClean(to, from.read(name, buffer));
}

void readNumber(const AttributeDirectory &from, const char *name, Maybe<uint32_t> &to)
{
    uint64_t value = 0;
    if (from.number(name, value) && value != 0 && value <= UINT32_MAX) {
        to.set(static_cast<uint32_t>(value));
    }
}

// Size and sectors. False for a drive without a medium.
bool readBlock(const AttributeDirectory &entry, Disk &disk)
{
    uint64_t value = 0;
    if (entry.number("size", value)) {
        disk.sizeBytes.set(value * kSectorBytes);
        uint64_t removable = 0;
        if (value == 0 && entry.number("removable", removable) && removable != 0) {
            return false;
        }
    }
    readNumber(entry, "queue/logical_block_size", disk.logicalBlockBytes);
    readNumber(entry, "queue/physical_block_size", disk.physicalBlockBytes);
    if (entry.number("queue/rotational", value)) {
        disk.rotational.set(value != 0);
    }
    return true;
}

void takePlace(const Surroundings &at, const Place &place, Disk &disk)
{
    disk.transport = place.transport;
    copyText(disk.adapter, place.adapter);
    copyText(disk.queue, place.queue);
    copyText(disk.address, place.address);
    if (at.bays.find(disk.address, disk.bay) || place.endDevice.empty()) {
        return;
    }
    // Without an enclosure device the SAS layer may still know the bay.
    char path[PATH_MAX];
    uint64_t bay = 0;
    std::snprintf(path, sizeof path, "class/sas_device/%.*s/bay_identifier", static_cast<int>(place.endDevice.size()),
                  place.endDevice.data());
    if (at.sysfs.number(path, bay)) {
        std::snprintf(disk.bay, sizeof disk.bay, "bay %llu", static_cast<unsigned long long>(bay));
    }
}

// Serial number of VPD page 80h, behind a header of four bytes.
void readSerialPage(const AttributeDirectory &device, Disk &disk)
{
    char buffer[kTextRoom];
    const std::string_view page = device.read("vpd_pg80", buffer);
    if (page.size() > 4) {
        copyClean(disk.serial, page.substr(4, static_cast<uint8_t>(page[3])));
    }
}

void readDesignators(const AttributeDirectory &device, Disk &disk)
{
    char buffer[kVpdRoom];
    char name[kNameOfDesignator];
    const std::string_view page = device.read("vpd_pg83", buffer);
    if (designatorOf({reinterpret_cast<const uint8_t *>(page.data()), page.size()}, name)) {
        copyText(disk.wwid, name);
    }
}

// A disk and types that are used like one; optical drives and tapes have block devices too.
bool isDiskType(const AttributeDirectory &device)
{
    constexpr uint64_t kDisk = 0;
    constexpr uint64_t kSimplifiedDisk = 0x0E;
    constexpr uint64_t kZonedDisk = 0x14;
    uint64_t type = 0;
    return !device.number("type", type) || type == kDisk || type == kSimplifiedDisk || type == kZonedDisk;
}

// Texts of an ATA disk in its cached IDENTIFY data, where INQUIRY has cut ones (VPD page 89h: 60 bytes, then the
// words).
bool readAtaPage(const AttributeDirectory &device, Disk &disk)
{
    constexpr size_t kIdentifyAt = 60;
    constexpr size_t kModelAt = kIdentifyAt + size_t{27} * 2;
    constexpr size_t kModelLength = 40;
    char buffer[kVpdRoom];
    const std::string_view page = device.read("vpd_pg89", buffer);
    if (page.size() < kModelAt + kModelLength) {
        return !page.empty();
    }
    char model[kModelLength];
    for (size_t i = 0; i < kModelLength; ++i) {
        model[i] = page[kModelAt + (i ^ 1U)];
    }
    if (model[0] > ' ') {
        copyClean(disk.model, {model, sizeof model});
    }
    return true;
}

void describeScsi(const AttributeDirectory &device, Disk &disk)
{
    readText(device, "vendor", disk.vendor);
    readText(device, "model", disk.model);
    readText(device, "rev", disk.firmware);
    readText(device, "wwid", disk.wwid);
    if (!isWorldWideName(disk.wwid)) {
        readDesignators(device, disk);
    }
    readSerialPage(device, disk);
    const bool ata = std::strcmp(disk.vendor, "ATA") == 0;
    const bool announced = (ata || disk.transport == Transport::usb) && readAtaPage(device, disk);
    disk.protocol = ata || announced ? Protocol::ata : Protocol::scsi;
}

// What the bridge passes on may be empty; the USB device has a number of its own.
void describeUsb(const Surroundings &at, const Place &place, Disk &disk)
{
    char path[PATH_MAX];
    if (disk.serial[0] == '\0' && !place.usbDevice.empty()) {
        std::string_view device = place.usbDevice;
        while (device.starts_with("../")) {
            device.remove_prefix(3);
        }
        std::snprintf(path, sizeof path, "%.*s/serial", static_cast<int>(device.size()), device.data());
        readText(at.sysfs, path, disk.serial);
    }
}

// The controller of a path of a multipath disk is behind the 'c' of its name ("nvme0c1n1": nvme1). The disk itself
// belongs to a subsystem; it takes the place of its paths.
void nameController(std::string_view name, Disk &disk)
{
    if (isNvmePathName(name)) {
        const std::string_view number = name.substr(name.find('c') + 1);
        std::snprintf(disk.queue, sizeof disk.queue, "nvme%.*s", static_cast<int>(number.find('n')), number.data());
    }
}

void describeNvme(const AttributeDirectory &entry, const AttributeDirectory &device, const char *name, Disk &disk)
{
    disk.protocol = Protocol::nvme;
    disk.transport = Transport::nvme;
    readText(device, "model", disk.model);
    readText(device, "serial", disk.serial);
    readText(device, "firmware_rev", disk.firmware);
    readText(entry, "wwid", disk.wwid);
    readNumber(entry, "nsid", disk.nvmeNamespace);
    nameController(name, disk);
    disk.hidden = isNvmePathName(name);
}

void describeMmc(const AttributeDirectory &device, Disk &disk)
{
    char cid[40];
    readText(device, "cid", cid);
    readText(device, "name", disk.model);
    readText(device, "serial", disk.serial);
    readText(device, "fwrev", disk.firmware);
    if (cid[0] != '\0') {
        std::snprintf(disk.wwid, sizeof disk.wwid, "cid.%s", cid);
    }
    char lifeTime[kTextRoom];
    char preEol[kTextRoom];
    takeCardLife(device.read("life_time", lifeTime), device.read("pre_eol_info", preEol), disk);
}

// An entry of /sys/block, and the device behind it.
struct Entry {
    const AttributeDirectory &block;
    const AttributeDirectory &device;
};

void describeKind(const Surroundings &at, const Entry &entry, const Place &place, Disk &disk)
{
    const auto &[block, device] = entry;
    if (place.scsi) {
        describeScsi(device, disk);
        if (place.transport == Transport::usb) {
            describeUsb(at, place, disk);
        }
    } else if (place.transport == Transport::nvme) {
        describeNvme(block, device, disk.name, disk);
    } else if (place.transport == Transport::mmc) {
        describeMmc(device, disk);
    } else {
        readText(block, "serial", disk.serial); // virtio-blk
    }
}

} // namespace

bool canBeDisk(std::string_view name)
{
    for (const std::string_view word :
         {"loop", "ram", "zram", "dm-", "md", "sr", "fd", "nbd", "zd", "drbd", "bcache"}) {
        const std::string_view rest = name.starts_with(word) ? name.substr(word.size()) : std::string_view();
        if (!rest.empty() && rest[0] >= '0' && rest[0] <= '9') {
            return false;
        }
    }
    const bool card = name.starts_with("mmcblk");
    return !card || (name.find("boot") == std::string_view::npos && name.find("rpmb") == std::string_view::npos &&
                     name.find("gp") == std::string_view::npos);
}

bool describeDisk(const Surroundings &at, const char *name, Disk &disk)
{
    char link[PATH_MAX];
    const Place place = placeOf(at.block.link(name, link));
    const AttributeDirectory entry(at.block, name);
    if (place.transport == Transport::unknown && place.adapter.empty()) {
        return false; // no device behind it
    }
    const AttributeDirectory device(entry, "device");
    if (place.scsi && !isDiskType(device)) {
        return false;
    }
    copyText(disk.name, name);
    copyText(disk.paths[0], name);
    disk.pathCount = 1;
    if (!entry.exists() || !readBlock(entry, disk)) {
        return false;
    }
    takePlace(at, place, disk);
    describeKind(at, {entry, device}, place, disk);
    return true;
}

} // namespace tavstrg::disks

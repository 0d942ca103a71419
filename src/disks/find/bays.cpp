// SPDX-License-Identifier: Apache-2.0
#include "disks/find/bays.h"

#include "disks/bytes.h"
#include "disks/find/place.h"
#include "runtime/field_text.h"

#include <algorithm>
#include <climits>
#include <cstdio>
#include <cstring>

namespace tavstrg::disks {
namespace {

constexpr int32_t kMostBays = 65536;

std::string_view withoutLineEnd(std::string_view text)
{
    return text.substr(0, text.find('\n'));
}

// A path of PCI slots has no function: "0000:01:00".
std::string_view withoutFunction(std::string_view address)
{
    return isPciAddress(address) ? address.substr(0, address.rfind('.')) : address;
}

} // namespace

Bays::Bays(const AttributeDirectory &sysfs, const char *sysfsPath)
{
    readEnclosures(sysfs, sysfsPath);
    readSlots(sysfs, sysfsPath);
    std::sort(bays_.begin(), bays_.end(), [](const Bay &a, const Bay &b) {
        const int by = std::strcmp(a.address, b.address);
        return by != 0 ? by < 0 : std::strcmp(a.name, b.name) < 0;
    });
}

void Bays::add(std::string_view address, const char *format, const char *first, const char *second)
{
    Bay *const bay = address.empty() || bays_.count() == kMostBays ? nullptr : bays_.append();
    if (bay != nullptr) {
        char name[PATH_MAX];
        copyText(bay->address, address);
        const int length = std::snprintf(name, sizeof name, format, first, second);
        copyClean(bay->name, {name, std::min<size_t>(static_cast<size_t>(std::max(length, 0)), sizeof name - 1)});
    }
}

// Each component that has a disk links to it: /sys/class/enclosure/6:0:8:0/Slot 01/device.
void Bays::readEnclosure(const AttributeDirectory &sysfs, const char *sysfsPath, const char *enclosure)
{
    char path[PATH_MAX];
    char target[PATH_MAX];
    std::snprintf(path, sizeof path, "%s/class/enclosure/%s", sysfsPath, enclosure);
    const OpenDirectory components(path);
    while (const char *const component = components.next()) {
        if (component[0] == '.') {
            continue;
        }
        std::snprintf(path, sizeof path, "class/enclosure/%s/%s/device", enclosure, component);
        const std::string_view device = sysfs.link(path, target);
        const std::string_view address = device.substr(device.rfind('/') + 1);
        if (isScsiAddress(address)) {
            add(address, "%s %s", enclosure, component);
        }
    }
}

void Bays::readEnclosures(const AttributeDirectory &sysfs, const char *sysfsPath)
{
    char path[PATH_MAX];
    std::snprintf(path, sizeof path, "%s/class/enclosure", sysfsPath);
    const OpenDirectory enclosures(path);
    while (const char *const enclosure = enclosures.next()) {
        if (enclosure[0] != '.') {
            readEnclosure(sysfs, sysfsPath, enclosure);
        }
    }
}

void Bays::readSlots(const AttributeDirectory &sysfs, const char *sysfsPath)
{
    char path[PATH_MAX];
    char buffer[48];
    std::snprintf(path, sizeof path, "%s/bus/pci/slots", sysfsPath);
    const OpenDirectory slots(path);
    while (const char *const slot = slots.next()) {
        if (slot[0] != '.') {
            std::snprintf(path, sizeof path, "bus/pci/slots/%s/address", slot);
            add(withoutLineEnd(sysfs.read(path, buffer)), "%s %s", "PCI slot", slot);
        }
    }
}

bool Bays::find(std::string_view address, char (&bay)[sizeof Disk::bay]) const
{
    char wanted[sizeof Bay::address];
    copyText(wanted, withoutFunction(address));
    const auto *const found = std::lower_bound(bays_.begin(), bays_.end(), wanted, [](const Bay &one, const char *key) {
        return std::strcmp(one.address, key) < 0;
    });
    if (found == bays_.end() || std::strcmp(found->address, wanted) != 0) {
        return false;
    }
    std::memcpy(bay, found->name, sizeof bay);
    return true;
}

} // namespace tavstrg::disks

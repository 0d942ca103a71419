// SPDX-License-Identifier: Apache-2.0
// Pages of ATA disks are made as libata does (drivers/ata/libata-scsi.c), the identity as drivers/scsi/scsi_lib.c.
#include "sim/vpd_pages.h"

#include "sim/ata_sectors.h"
#include "sim/hex.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <span>
#include <string_view>

namespace sim {

namespace {

using Bytes = std::vector<uint8_t>;

constexpr uint8_t kAscii = 2;  // code set of a designator
constexpr uint8_t kBinary = 1; // its other one
enum DesignatorType : uint8_t { kVendorSpecific = 0, kT10VendorId = 1, kEui64 = 2, kNaa = 3, kScsiName = 8 };

void append(Bytes &to, std::string_view text, size_t length)
{
    for (size_t i = 0; i < length; ++i) {
        to.push_back(static_cast<uint8_t>(i < text.size() ? text[i] : ' '));
    }
}

void addDesignator(Bytes &page, uint8_t codeSet, DesignatorType type, std::span<const uint8_t> value)
{
    page.insert(page.end(), {codeSet, type, 0, static_cast<uint8_t>(value.size())});
    page.insert(page.end(), value.begin(), value.end());
}

// Sets the length in bytes 2 and 3 of a page.
Bytes finished(Bytes page)
{
    page[2] = static_cast<uint8_t>((page.size() - 4) >> 8);
    page[3] = static_cast<uint8_t>(page.size() - 4);
    return page;
}

Bytes beginning(const DeviceDescription &device, uint8_t page)
{
    return {static_cast<uint8_t>(device.type & 0x1F), page, 0, 0};
}

constexpr size_t kAtaSerialLength = 20;
constexpr size_t kAtaModelLength = 40;

Bytes unitSerialNumber(const DeviceDescription &device)
{
    Bytes page = beginning(device, kUnitSerialNumber);
    append(page, device.serial, device.ata ? kAtaSerialLength : std::min<size_t>(device.serial.size(), 252));
    return finished(std::move(page));
}

// The designators that begin with the vendor's name: SAT's for an ATA disk, SPC's for another one.
Bytes t10Designator(const DeviceDescription &device)
{
    Bytes value;
    append(value, device.ata ? "ATA" : std::string_view(device.vendor), 8);
    append(value, device.model, device.ata ? kAtaModelLength : 16);
    append(value, device.serial, device.ata ? kAtaSerialLength : std::min<size_t>(device.serial.size(), 128));
    return value;
}

std::optional<Bytes> deviceIdentification(const DeviceDescription &device)
{
    const Bytes &wwn = device.identity.wwn;
    if (!device.ata && wwn.empty() && device.serial.empty()) {
        return std::nullopt;
    }
    Bytes page = beginning(device, kDeviceIdentification);
    if (device.ata) {
        Bytes serial;
        append(serial, device.serial, kAtaSerialLength);
        addDesignator(page, kAscii, kVendorSpecific, serial);
    }
    if (device.ata || wwn.empty()) {
        addDesignator(page, kAscii, kT10VendorId, t10Designator(device));
    }
    if (!wwn.empty()) {
        addDesignator(page, kBinary, kNaa, wwn);
    }
    return finished(std::move(page));
}

Bytes ataInformation(const DeviceDescription &device)
{
    Bytes page = beginning(device, kAtaInformation);
    page.resize(8);
    append(page, "linux", 8);
    append(page, "libata", 16);
    append(page, "3.00", 4);
    page.resize(60);
    page[36] = 0x34; // FIS type: registers, device to host
    page[37] = 0x80;
    page[38] = 0x40; // status: ready
    page[40] = page[48] = 0x01;
    page[56] = 0xEC; // IDENTIFY DEVICE
    const IdentifyBlock block = identifyBlock(device, device.smart.enabled);
    page.insert(page.end(), block.begin(), block.end());
    return finished(std::move(page));
}

Bytes blockCharacteristics(const DeviceDescription &device)
{
    Bytes page = beginning(device, kBlockCharacteristics);
    page.resize(64);
    const unsigned rate = device.block.rotationRate.value_or(0);
    page[4] = static_cast<uint8_t>(rate >> 8);
    page[5] = static_cast<uint8_t>(device.block.rotationRate && rate == 0 ? 1 : rate); // 1: does not rotate
    return finished(std::move(page));
}

std::optional<Bytes> madeUp(const DeviceDescription &device, uint8_t page)
{
    switch (page) {
    case kUnitSerialNumber:
        return unitSerialNumber(device);
    case kDeviceIdentification:
        return deviceIdentification(device);
    case kAtaInformation:
        return device.isAtaDisk() || device.sat ? std::optional(ataInformation(device)) : std::nullopt;
    case kBlockCharacteristics:
        return device.block.rotationRate ? std::optional(blockCharacteristics(device)) : std::nullopt;
    default:
        return std::nullopt;
    }
}

Bytes supportedPages(const DeviceDescription &device)
{
    Bytes page = beginning(device, kSupportedPages);
    page.push_back(kSupportedPages);
    for (unsigned number = 1; number <= 0xFF; ++number) {
        if (vpdPage(device, static_cast<uint8_t>(number))) {
            page.push_back(static_cast<uint8_t>(number));
        }
    }
    return finished(std::move(page));
}

// ---- the kernel's choice among the designators of page 83 ----

using Designator = std::span<const uint8_t>; // with its header of 4 bytes

int naaPriority(uint8_t format)
{
    constexpr int kByFormat[] = {1, 4, 5, 8}; // NAA 3 to 6
    return format >= 3 && format <= 6 ? kByFormat[format - 3] : 0;
}

int priorityOf(Designator d)
{
    if ((d[1] & 0x30) != 0 || d[3] == 0) { // not of the logical unit
        return 0;
    }
    switch (d[1] & 0x0F) {
    case kScsiName:
        return 9;
    case kNaa:
        return naaPriority(d[4] >> 4);
    case kEui64:
        return d[3] == 16 ? 7 : d[3] == 12 ? 6 : d[3] == 8 ? 3 : 0;
    case kT10VendorId:
        return 1;
    default:
        return 0;
    }
}

// As the kernel's format "%*pE": what cannot be printed is written in octal digits.
std::string escaped(std::span<const uint8_t> value)
{
    std::string text;
    for (const uint8_t byte : value) {
        std::array<char, 5> digits{static_cast<char>(byte)};
        if (byte < 0x20 || byte >= 0x7F) {
            std::snprintf(digits.data(), digits.size(), "\\%03o", static_cast<unsigned>(byte));
        }
        text += digits.data();
    }
    return text;
}

std::string textOf(Designator d)
{
    const std::span<const uint8_t> value = d.subspan(4);
    switch (d[1] & 0x0F) {
    case kT10VendorId:
        return "t10." + escaped(value);
    case kEui64:
        return "eui." + hexText(value);
    case kNaa:
        return "naa." + hexText(value);
    default:
        return {value.begin(), value.end()};
    }
}

} // namespace

std::optional<std::vector<uint8_t>> vpdPage(const DeviceDescription &device, uint8_t page)
{
    if (const auto given = device.identity.vpdPages.find(page); given != device.identity.vpdPages.end()) {
        return given->second;
    }
    return page == kSupportedPages ? supportedPages(device) : madeUp(device, page);
}

std::string wwidOf(const DeviceDescription &device)
{
    const std::optional<Bytes> page = vpdPage(device, kDeviceIdentification);
    std::string best;
    int priority = 0;
    for (size_t at = 4; page && at + 4 < page->size(); at += size_t{4} + (*page)[at + 3]) {
        const size_t length = std::min<size_t>(size_t{4} + (*page)[at + 3], page->size() - at);
        const Designator designator(page->data() + at, length);
        if (const int found = priorityOf(designator); found > 0 && found >= priority) {
            priority = found;
            best = textOf(designator);
        }
    }
    return best;
}

} // namespace sim

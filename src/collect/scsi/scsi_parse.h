// SPDX-License-Identifier: Apache-2.0
// What the SCSI texts of sysfs and procfs mean: parsing without reading.
#pragma once

#include <cstdint>
#include <string_view>

namespace tavstrg {

constexpr int kInterfaceUndecided = -100;
constexpr int kInterfaceProcfs = 0;
constexpr int kInterfaceSysfs = 1;
// The interface of a kernel release: procfs for a number below 26, made of the release's first, third and fourth
// character, the fourth only when it is no ".": "2.4.21" is 24, "2.6.9" is 26, "3.10.0" is 310.
int interfaceOfRelease(std::string_view release);

// Text of a peripheral device type of sysfs, one decimal digit; "Unknown" for any other text.
std::string_view scsiTypeText(std::string_view type);

struct ScsiAddress {
    int32_t host;
    int32_t channel;
    int32_t id;
    int32_t lun;

    bool operator==(const ScsiAddress &) const = default;
};
// "%d:%d:%d:%d", the name of a device's directory.
bool parseScsiAddress(std::string_view name, ScsiAddress &address);
// A host line of /proc/scsi/scsi, "%s %s %s %d %s %d %s %d": Host: scsi0 Channel: 00 Id: 00 Lun: 00
bool parseProcHostLine(std::string_view line, ScsiAddress &address);
// "host%d", the name of a host adapter's directory in sysfs; its number is not negative.
bool parseHostName(std::string_view name, int32_t &host);
// The name of a host adapter's file in its driver's directory of procfs: digits alone.
bool parseHostNumber(std::string_view name, int32_t &host);

// Directories of /proc/scsi, and so names of drivers, that are never host adapters of the inventory. Prefixes: this
// also leaves out "scsi_debug" and "usb-storage".
bool isNeverHostAdapter(std::string_view driver);
// Drivers of USB host adapters, by prefix.
bool isUsbDriver(std::string_view driver);

// The value of a key in a line of /proc/scsi/scsi, as FindName returns it; false if the key or its colon is missing.
bool namedValue(std::string_view line, std::string_view key, std::string_view &value);

} // namespace tavstrg

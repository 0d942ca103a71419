// SPDX-License-Identifier: Apache-2.0
// What a device's type text makes of it. One table per interface serves counting and building, so the two cannot drift.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

namespace tavstrg {

// The classes of devices, each with its own table.
enum DeviceClass : uint8_t { kHardDisk, kCdrom, kTape, kOpticalMemory, kOtherDevice };
constexpr size_t kDeviceClassCount = 5;

// A word without a source.
constexpr uint16_t kNoCode = 65535;

struct DeviceKind {
    std::string_view typePrefix; // the first row whose prefix the type text begins with; the last row's matches all
    DeviceClass deviceClass;     // table that counts it and holds it
    uint16_t deviceType;         // DeviceType of its SCSI or IDE entry
    uint16_t codes[2];           // class codes of its entry
};

// By SCSI type text. Deliberate: processors have no row under the spelling that discovery gives them, "Proccessor", and
// so fall through to the last row.
constexpr DeviceKind kDeviceKinds[] = {
    {"Direct-Access", kHardDisk, 0, {2, 1}},
    {"Sequential-Access", kTape, 2, {1, kNoCode}},
    {"WORM", kOtherDevice, 4, {1, kNoCode}},
    {"CD-ROM", kCdrom, 1, {1, kNoCode}},
    {"Optical Device", kOpticalMemory, 3, {1, kNoCode}},
    {"Printer", kOtherDevice, 4, {2, 1}},
    {"Processor", kOtherDevice, 4, {2, 1}},
    {"Scanner", kOtherDevice, 4, {2, kNoCode}},
    {"", kOtherDevice, 4, {kNoCode, kNoCode}},
};

// By IDE media text. Deliberate: other device types than the SCSI ones.
constexpr DeviceKind kIDEDeviceKinds[] = {
    {"disk", kHardDisk, 2, {2, 1}},
    {"cdrom", kCdrom, 3, {1, kNoCode}},
    {"", kOtherDevice, 1, {kNoCode, kNoCode}},
};

constexpr const DeviceKind &kindOf(std::span<const DeviceKind> kinds, std::string_view type)
{
    for (const DeviceKind &kind : kinds) {
        if (type.starts_with(kind.typePrefix)) {
            return kind;
        }
    }
    return kinds.back();
}

constexpr const DeviceKind &scsiKindOf(std::string_view type)
{
    return kindOf(kDeviceKinds, type);
}

constexpr const DeviceKind &ideKindOf(std::string_view media)
{
    return kindOf(kIDEDeviceKinds, media);
}

static_assert(scsiKindOf("Proccessor").codes[0] == kNoCode && scsiKindOf("Processor").codes[0] == 2);

} // namespace tavstrg

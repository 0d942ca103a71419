// SPDX-License-Identifier: Apache-2.0
// The hard-disk entry that the device routines work on. Which slot of which table it is, is the collector's business.
#pragma once

#include <cstdint>

namespace tavstrg {

constexpr uint16_t kDevKindScsi = 0;
constexpr uint16_t kDevKindAta = 1;  // ATA or ATAPI, through the IDE ioctls
constexpr uint16_t kDevKindSata = 2; // ATA behind a SCSI layer, through ATA PASS-THROUGH

// One hard disk of a collection, fields in the order of its table.
struct HardDiskEntry {
    uint16_t Index; // 1-based
    uint16_t reserved;
    uint16_t InterfaceType;      // 0 SCSI, 1 IDE
    uint16_t InterfaceTypeIndex; // Index in the SCSI or IDE device table
    uint16_t unknownWord;        // 65534
    char driverName[65];
    char driverVersion[33];
    uint64_t CylindersPerUnit;
    uint64_t TracksPerCylinder; // heads
    uint64_t SectorsPerTrack;
    uint64_t Capacity;     // MiB
    uint16_t DeviceNumber; // major * 256 + minor, computed
    char DevPath[64];      // device node; empty when the disk's name is not known
    uint16_t DevKind;
    int16_t SmartPredict;      // 0 good, 1 threshold exceeded, -1 unreadable; published as SmartStatus
    uint64_t SmartSupport;     // 1 unknown, 2 supported and enabled, 3 not supported
    uint64_t SmartEnableState; // 0 not read, 2 found enabled, 3 found disabled
};

} // namespace tavstrg

// SPDX-License-Identifier: Apache-2.0
// Entries of the device tables, which are flat and numbered without gaps in discovery order.
#pragma once

#include "devcmd/hard_disk.h"

#include <cstdint>

namespace tavstrg {

// One managed SCSI device. Words without a specific name are not published.
struct SCSIDeviceEntry {
    uint16_t Index;           // 1-based
    uint16_t DeviceTypeIndex; // 1-based, in the table of its class
    uint16_t zero;
    uint16_t TargetID;
    uint16_t Bus; // channel
    uint16_t LUN;
    uint16_t ControllerIndex; // 65535 when no controller matched
    uint16_t DeviceType;      // 0 hard disk, 1 CD-ROM, 2 tape, 3 optical memory, 4 other
    char vendor[64];
    char model[64];
    char revision[64];
    char SerialNumber[256]; // hard disks only
    uint16_t wordsBefore[2];
    uint16_t classCodes[2];
    uint16_t wordsAfter[3];
};

// One IDE device.
struct IDEDeviceEntry {
    uint16_t Index;            // 1-based
    uint16_t DeviceTypeIndex;  // 1-based, in the table of its class
    uint16_t IDEConfiguration; // drive position: 2 master, 3 slave, 1 unknown
    uint16_t ControllerIndex;  // 65535 when no controller matched
    uint16_t DeviceType;       // 2 disk, 3 CD-ROM, 1 other
    char notSupported[64];     // not published
    char model[64];
    char revision[64];
    char SerialNumber[256];
    uint16_t classCodes[2];
    uint16_t wordsAfter[3];
};

// One device in the table of its class, pointing back to its SCSI or IDE entry.
struct ClassDeviceEntry {
    uint16_t Index;              // 1-based
    uint16_t InterfaceType;      // 0 SCSI, 1 IDE
    uint16_t InterfaceTypeIndex; // Index of the SCSI or IDE entry
    char driverName[65];
    char driverVersion[33];
};

struct CdromDeviceEntry {
    uint16_t Index;
    uint16_t InterfaceType;
    uint16_t InterfaceTypeIndex;
    char driverName[65];
    char driverVersion[33];
    uint16_t ideWord; // 65534 for an IDE drive
};

struct TapeDeviceEntry {
    uint16_t Index;
    uint16_t InterfaceType;
    uint16_t InterfaceTypeIndex;
    char driverName[65];
    char driverVersion[33];
    uint16_t IndexAgain;
};

struct LifeSpanEntry {
    uint16_t Index;             // 1-based
    uint16_t HDDIndex;          // DeviceTypeIndex of the disk's SCSI entry
    int16_t EnduranceRemaining; // level 1 to 5; -1 unknown
    uint16_t reserved;
};

// Record counts by class: upper bounds after counting, the entries written once the tables are built.
struct DeviceNumbers {
    uint16_t TotalSCSIDevice;
    uint16_t TotalIDEDevice;
    uint16_t TotalHDDevice;
    uint16_t TotalTapeDevice; // deliberate: before the CD-ROMs, the other way round than the classes
    uint16_t TotalCdromDevice;
    uint16_t TotalOMDevice;
    uint16_t TotalMiscDevice;
    uint16_t TotalLifeSpan;
};

} // namespace tavstrg

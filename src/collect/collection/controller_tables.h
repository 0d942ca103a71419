// SPDX-License-Identifier: Apache-2.0
// Entries of the controller tables: every storage controller once, and side tables of what it uses.
#pragma once

#include "records/records.h"

#include <cstdint>

namespace tavstrg {

constexpr uint16_t kInterfaceUnknown = 0xFFFF; // beside the codes of the records

// One controller. Words without a specific name are not published and keep their initial values.
struct ControllerEntry {
    uint16_t Index;            // 1-based: SCSI host adapters by host number, then IDE channels in discovery order
    uint16_t InterfaceType;    // kInterface...
    uint16_t controllerNumber; // SCSI host number, or the number in the IDE channel's name
    uint16_t numberInKind;     // SCSI: Index; IDE: 1-based position among the IDE controllers; unknown: 0
    uint16_t kindWord;         // 0xFFFF; IDE 0xFFFE
    char Model[33];
    char version[33];
    uint16_t busType; // IDE only: 1 other, 2 ISA, 3 EISA, 4 PCI
    uint16_t oneWord; // 1
    uint64_t interruptWord;
    uint64_t InterruptNumber; // 0xFFFFFFFF when unknown, as are the values beside it
    uint64_t values[2];
    uint16_t portCount;
    uint16_t firstPort; // index in pPortTbl
    uint16_t driverCount;
    uint16_t driverIndex; // index in pDriverTbl; 0xFFFF until linked
    uint16_t words[2];
    uint64_t value;
};

struct SCSIControllerEntry {
    uint16_t controllerIndex;
    uint16_t controllerIndexAgain;
    uint16_t host;
};

struct IDEControllerEntry {
    uint16_t controllerIndex;
    uint16_t position; // 1-based, among the IDE controllers
};

struct PortEntry {
    uint64_t index; // 1-based
    uint64_t start; // address
    uint64_t length;
};

struct DriverEntry {
    uint32_t index; // 1-based
    uint32_t zero;
    char name[32];
    char version[60];
};
static_assert(sizeof(DriverEntry) == 100);

struct ControllerNumbers {
    uint16_t TotalController;
    uint16_t TotalSCSIController;
    uint16_t TotalIDEController;
    uint16_t TotalPort;
    uint16_t TotalDriver;
};

} // namespace tavstrg

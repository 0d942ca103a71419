// SPDX-License-Identifier: Apache-2.0
// The controller tables of one collection: every storage controller once, and side tables of what it uses.
#pragma once

#include "records/records.h"

#include <cstdint>

namespace tavstrg {

constexpr uint16_t kInterfaceUnknown = 0xFFFF; // beside the codes of the records

// One controller. Words without a name of their own are not published; their initial values are kept.
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

extern tavstrg::ControllerNumbers CtrlNumMib;

extern tavstrg::ControllerEntry *pCtrlTbl;
extern tavstrg::SCSIControllerEntry *pSCSICtrlTbl;
extern tavstrg::IDEControllerEntry *pIDECtrlTbl;
extern tavstrg::PortEntry *pPortTbl;
extern tavstrg::DriverEntry *pDriverTbl;

namespace tavstrg {

// Entries written so far.
extern int32_t ctrl_cnt;
extern int32_t scsi_ctrl_cnt;
extern int32_t ide_ctrl_cnt;

} // namespace tavstrg

extern int32_t port_cnt;
extern int32_t driver_cnt;

namespace tavstrg {

// The only ways into the tables: true, or false when there is no room left.
bool appendController(const ControllerEntry &entry);
bool appendSCSIController(const SCSIControllerEntry &entry);
bool appendIDEController(const IDEControllerEntry &entry);
bool appendPort(const PortEntry &entry);     // grows
bool appendDriver(const DriverEntry &entry); // grows

// Everything from zero. The tables must have been freed.
void resetControllerCounters();

} // namespace tavstrg

// Each allocates its table for a number of entries: 0, or -1.
int MallocSCSIControllerTable(uint16_t number);
int MallocIDEControllerTable(uint16_t number);
int MallocPortTable(uint16_t number);
int MallocDriverTable(uint16_t number);
int MallocControllerTable(uint16_t number);
// Allocates all tables for what CtrlNumMib says: 0, or -1 with the earlier ones still allocated.
int MallocController();
// Frees every table; they may be free already.
void FreeControllerTable();

namespace tavstrg {

// Index of the first SCSI controller of a host number; 65535 when there is none.
uint16_t controllerIndexOfHost(int32_t host);

} // namespace tavstrg

// SPDX-License-Identifier: Apache-2.0
// All that one collection of the inventory builds: discovery lists, controller tables, device tables and their
// counters.
#pragma once

#include "collect/collection/controller_tables.h"
#include "collect/collection/device_kinds.h"
#include "collect/collection/device_tables.h"
#include "collect/ide/ide_discovery.h"
#include "collect/scsi/scsi_discovery.h"
#include "collect/scsi/sys_hosts.h"
#include "devcmd/open_device.h"
#include "runtime/options.h"

#include <cstdint>

namespace tavstrg {

// The functions of the system that take no argument work on the collection that was made last and still lives. Two
// threads must not have one at the same time.
struct Collection {
    Collection();
    // Frees everything unless release() did.
    ~Collection();
    Collection(const Collection &) = delete;
    Collection &operator=(const Collection &) = delete;
    // Frees device tables, discovery lists and controller tables, in this order; any of them may be free already.
    void release();

    // Discovery lists.
    SCSIDeviceInfo *g_SCSIDeviceInfo = nullptr; // null when the kernel shows none
    int32_t g_SCSIDeviceTotalNumber = 0;
    SCSIControllerTypeDetail *g_SCSIControllerTypeDetail = nullptr;
    int32_t g_SCSIControllerTypeTotalNumber = 0; // distinct drivers
    int32_t g_SCSIControllerTotalNumber = 0;     // managed host adapters
    IDEGeneralInfo g_IDEGeneralInfo = {};

    // Controller tables, and the entries written so far.
    ControllerNumbers CtrlNumMib = {};
    ControllerEntry *pCtrlTbl = nullptr;
    SCSIControllerEntry *pSCSICtrlTbl = nullptr;
    IDEControllerEntry *pIDECtrlTbl = nullptr;
    PortEntry *pPortTbl = nullptr;
    DriverEntry *pDriverTbl = nullptr;
    int32_t ctrl_cnt = 0;
    int32_t scsi_ctrl_cnt = 0;
    int32_t ide_ctrl_cnt = 0;
    int32_t port_cnt = 0;
    int32_t driver_cnt = 0;
    int32_t portCapacity = 0;
    int32_t driverCapacity = 0;
    bool scsiHostsAscend = true; // host numbers in pSCSICtrlTbl

    // Device tables.
    DeviceNumbers DevNumMib = {};
    SCSIDeviceEntry *pSCSIDevTbl = nullptr;
    IDEDeviceEntry *pIDEDevTbl = nullptr;
    HardDiskEntry *pHDDevTbl = nullptr;
    CdromDeviceEntry *pCdromDevTbl = nullptr;
    TapeDeviceEntry *pTapeDevTbl = nullptr;
    ClassDeviceEntry *pOMDevTbl = nullptr;
    ClassDeviceEntry *pMiscDevTbl = nullptr;
    LifeSpanEntry *pLifeSpanTbl = nullptr;
    LifeSpanEntry *pLifeSpanTblOld = nullptr; // the block before pLifeSpanTbl grew

    // Entries for which room is reserved.
    int32_t TotalSCSIDevice = 0;
    int32_t TotalIDEDevice = 0;
    int32_t TotalHDDevice = 0;
    int32_t TotalTapeDevice = 0;
    int32_t TotalCdromDevice = 0;
    int32_t TotalOMDevice = 0;
    int32_t TotalMiscDevice = 0;

    // Entries written.
    int32_t scsi_dev_cnt = 0;
    int32_t ide_dev_cnt = 0;
    int32_t hd_dev_cnt = 0;
    int32_t tape_dev_cnt = 0;
    int32_t cdrom_dev_cnt = 0;
    int32_t om_dev_cnt = 0;
    int32_t misc_dev_cnt = 0;
    int32_t scsi_hd_cnt = 0; // SCSI "Direct-Access" devices met, managed or not: their order gives the device numbers

    SysHosts sysHosts;     // read when first asked for
    KnownNodes knownNodes; // the nodes that this collection opened before

    const Options options = currentOptions(); // what the administrator has switched on

private:
    Collection *const outer_;
    SysHosts *const outerHosts_;
    bool released_ = false;
};

// The collection that lives; there must be one.
Collection &collection();
// The same, or null.
Collection *currentCollection();

// Reserved and written entries of a class table.
struct ClassCounters {
    int32_t &total;
    int32_t &written;
};
ClassCounters countersOf(Collection &all, DeviceClass deviceClass);

// Sets every counter of the device tables to zero.
void resetDeviceCounters(Collection &all);
// DevNumMib from the reserved sizes, without life spans.
void takeReservedNumbers(Collection &all);
// DevNumMib from what was written; the life spans are counted as they are written.
void takeWrittenNumbers(Collection &all);

// The only ways into the controller tables. Returns true, or false if there is no room left.
bool appendController(Collection &all, const ControllerEntry &entry);
bool appendSCSIController(Collection &all, const SCSIControllerEntry &entry);
bool appendIDEController(Collection &all, const IDEControllerEntry &entry);
bool appendPort(Collection &all, const PortEntry &entry);     // grows
bool appendDriver(Collection &all, const DriverEntry &entry); // grows

// Every counter of the controller tables from zero. The tables must have been freed.
void resetControllerCounters(Collection &all);

// Index of the first SCSI controller of a host number; 65535 if there is none.
uint16_t controllerIndexOfHost(const Collection &all, int32_t host);

} // namespace tavstrg

// Builds the discovery lists. Returns 0, or -1 with all of them empty. What is not there (no sysfs directory, no
// "storage.inf", no /proc/ide) is an empty list.
int GetSCSIAndIDEInfoListFromProc();
// Frees the lists; they may be empty already.
void FreeSCSIAndIDEInfoListFromProc();

// Each allocates its table for a number of entries. Returns 0, or -1.
int MallocSCSIControllerTable(uint16_t number);
int MallocIDEControllerTable(uint16_t number);
int MallocPortTable(uint16_t number);
int MallocDriverTable(uint16_t number);
int MallocControllerTable(uint16_t number);
// Allocates all controller tables for what CtrlNumMib says. Returns 0, or -1 with the earlier ones still allocated.
int MallocController();
// Frees every controller table; they may be free already.
void FreeControllerTable();

// Allocates the device tables for the totals. Returns 0, or -1.
int MallocDeviceTable();
// Frees the device tables; they may be free already.
void FreeDeviceTable();

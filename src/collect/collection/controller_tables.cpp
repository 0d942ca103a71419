// SPDX-License-Identifier: Apache-2.0
#include "collect/collection/controller_tables.h"

#include "collect/base/flat_table.h"

using namespace tavstrg;

ControllerNumbers CtrlNumMib = {};

ControllerEntry *pCtrlTbl = nullptr;
SCSIControllerEntry *pSCSICtrlTbl = nullptr;
IDEControllerEntry *pIDECtrlTbl = nullptr;
PortEntry *pPortTbl = nullptr;
DriverEntry *pDriverTbl = nullptr;

int32_t tavstrg::ctrl_cnt = 0;
int32_t tavstrg::scsi_ctrl_cnt = 0;
int32_t tavstrg::ide_ctrl_cnt = 0;
int32_t port_cnt = 0;
int32_t driver_cnt = 0;

namespace {

int32_t portCapacity = 0;
int32_t driverCapacity = 0;

template <class Entry> int mallocTable(Entry *&table, uint16_t number)
{
    TRACE(kDetail, "_IN_ number=[%d]", number);
    if (allocateTable(table, number) < 0) {
        return TRACED(-1, kFailure, "_OUT_ (-1)");
    }
    return TRACED(0, kDetail, "_OUT_ (0)");
}

} // namespace

bool tavstrg::appendController(const ControllerEntry &entry)
{
    return appendEntry(pCtrlTbl, CtrlNumMib.TotalController, ctrl_cnt, entry);
}

bool tavstrg::appendSCSIController(const SCSIControllerEntry &entry)
{
    return appendEntry(pSCSICtrlTbl, CtrlNumMib.TotalSCSIController, scsi_ctrl_cnt, entry);
}

bool tavstrg::appendIDEController(const IDEControllerEntry &entry)
{
    return appendEntry(pIDECtrlTbl, CtrlNumMib.TotalIDEController, ide_ctrl_cnt, entry);
}

bool tavstrg::appendPort(const PortEntry &entry)
{
    return growAndAppend(pPortTbl, portCapacity, port_cnt, entry);
}

bool tavstrg::appendDriver(const DriverEntry &entry)
{
    return growAndAppend(pDriverTbl, driverCapacity, driver_cnt, entry);
}

void tavstrg::resetControllerCounters()
{
    CtrlNumMib = {};
    ctrl_cnt = scsi_ctrl_cnt = ide_ctrl_cnt = port_cnt = driver_cnt = 0;
    portCapacity = driverCapacity = 0;
}

int MallocSCSIControllerTable(uint16_t number)
{
    const TraceScope scope;
    return mallocTable(pSCSICtrlTbl, number);
}

int MallocIDEControllerTable(uint16_t number)
{
    const TraceScope scope;
    return mallocTable(pIDECtrlTbl, number);
}

int MallocPortTable(uint16_t number)
{
    const TraceScope scope;
    portCapacity = number;
    return mallocTable(pPortTbl, number);
}

int MallocDriverTable(uint16_t number)
{
    const TraceScope scope;
    driverCapacity = number;
    return mallocTable(pDriverTbl, number);
}

int MallocControllerTable(uint16_t number)
{
    const TraceScope scope;
    return mallocTable(pCtrlTbl, number);
}

int MallocController()
{
    const TraceScope scope;
    TRACE(kDetail, "_IN_");
    if (MallocSCSIControllerTable(CtrlNumMib.TotalSCSIController) < 0 ||
        MallocIDEControllerTable(CtrlNumMib.TotalIDEController) < 0 || MallocPortTable(CtrlNumMib.TotalPort) < 0 ||
        MallocDriverTable(CtrlNumMib.TotalDriver) < 0 || MallocControllerTable(CtrlNumMib.TotalController) < 0) {
        return TRACED(-1, kFailure, "_OUT_ (-1)");
    }
    return TRACED(0, kDetail, "_OUT_ (0)");
}

void FreeControllerTable()
{
    const TraceScope scope;
    TRACE(kDetail, "_IN_");
    memfree(pCtrlTbl);
    memfree(pDriverTbl);
    memfree(pPortTbl);
    memfree(pIDECtrlTbl);
    memfree(pSCSICtrlTbl);
    resetControllerCounters();
    TRACE(kDetail, "_OUT_");
}

uint16_t tavstrg::controllerIndexOfHost(int32_t host)
{
    for (int32_t i = 0; i < scsi_ctrl_cnt; ++i) {
        if (pSCSICtrlTbl[i].host == static_cast<uint16_t>(host)) {
            return pSCSICtrlTbl[i].controllerIndex;
        }
    }
    return kUnknownWord;
}

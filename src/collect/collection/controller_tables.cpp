// SPDX-License-Identifier: Apache-2.0
#include "collect/base/flat_table.h"
#include "collect/collection/collection.h"

#include <algorithm>

using namespace tavstrg;

namespace {

template <class Entry> int mallocTable(Entry *&table, uint16_t number)
{
    TRACE(kDetail, "_IN_ number=[%d]", number);
    if (allocateTable(table, number) < 0) {
        return TRACED(-1, kFailure, "_OUT_ (-1)");
    }
    return TRACED(0, kDetail, "_OUT_ (0)");
}

} // namespace

bool tavstrg::appendController(Collection &all, const ControllerEntry &entry)
{
    return appendEntry(all.pCtrlTbl, all.CtrlNumMib.TotalController, all.ctrl_cnt, entry);
}

bool tavstrg::appendSCSIController(Collection &all, const SCSIControllerEntry &entry)
{
    // Hosts come in ascending order, but only the low 16 bits of their numbers are kept.
    const bool ascends = all.scsi_ctrl_cnt == 0 || all.pSCSICtrlTbl[all.scsi_ctrl_cnt - 1].host <= entry.host;
    all.scsiHostsAscend = all.scsiHostsAscend && ascends;
    return appendEntry(all.pSCSICtrlTbl, all.CtrlNumMib.TotalSCSIController, all.scsi_ctrl_cnt, entry);
}

bool tavstrg::appendIDEController(Collection &all, const IDEControllerEntry &entry)
{
    return appendEntry(all.pIDECtrlTbl, all.CtrlNumMib.TotalIDEController, all.ide_ctrl_cnt, entry);
}

bool tavstrg::appendPort(Collection &all, const PortEntry &entry)
{
    return growAndAppend(all.pPortTbl, all.portCapacity, all.port_cnt, entry);
}

bool tavstrg::appendDriver(Collection &all, const DriverEntry &entry)
{
    return growAndAppend(all.pDriverTbl, all.driverCapacity, all.driver_cnt, entry);
}

void tavstrg::resetControllerCounters(Collection &all)
{
    all.CtrlNumMib = {};
    all.ctrl_cnt = all.scsi_ctrl_cnt = all.ide_ctrl_cnt = all.port_cnt = all.driver_cnt = 0;
    all.portCapacity = all.driverCapacity = 0;
    all.scsiHostsAscend = true;
}

int MallocSCSIControllerTable(uint16_t number)
{
    const TraceScope scope;
    return mallocTable(collection().pSCSICtrlTbl, number);
}

int MallocIDEControllerTable(uint16_t number)
{
    const TraceScope scope;
    return mallocTable(collection().pIDECtrlTbl, number);
}

int MallocPortTable(uint16_t number)
{
    const TraceScope scope;
    collection().portCapacity = number;
    return mallocTable(collection().pPortTbl, number);
}

int MallocDriverTable(uint16_t number)
{
    const TraceScope scope;
    collection().driverCapacity = number;
    return mallocTable(collection().pDriverTbl, number);
}

int MallocControllerTable(uint16_t number)
{
    const TraceScope scope;
    return mallocTable(collection().pCtrlTbl, number);
}

int MallocController()
{
    const TraceScope scope;
    TRACE(kDetail, "_IN_");
    const ControllerNumbers &numbers = collection().CtrlNumMib;
    if (MallocSCSIControllerTable(numbers.TotalSCSIController) < 0 ||
        MallocIDEControllerTable(numbers.TotalIDEController) < 0 || MallocPortTable(numbers.TotalPort) < 0 ||
        MallocDriverTable(numbers.TotalDriver) < 0 || MallocControllerTable(numbers.TotalController) < 0) {
        return TRACED(-1, kFailure, "_OUT_ (-1)");
    }
    return TRACED(0, kDetail, "_OUT_ (0)");
}

void FreeControllerTable()
{
    const TraceScope scope;
    TRACE(kDetail, "_IN_");
    Collection &all = collection();
    memfree(all.pCtrlTbl);
    memfree(all.pDriverTbl);
    memfree(all.pPortTbl);
    memfree(all.pIDECtrlTbl);
    memfree(all.pSCSICtrlTbl);
    resetControllerCounters(all);
    TRACE(kDetail, "_OUT_");
}

uint16_t tavstrg::controllerIndexOfHost(const Collection &all, int32_t host)
{
    const auto number = static_cast<uint16_t>(host);
    const SCSIControllerEntry *const end = all.pSCSICtrlTbl + all.scsi_ctrl_cnt;
    const SCSIControllerEntry *found = all.pSCSICtrlTbl;
    if (all.scsiHostsAscend) {
        found = std::lower_bound(found, end, number,
                                 [](const SCSIControllerEntry &entry, uint16_t wanted) { return entry.host < wanted; });
    } else {
        found = std::find_if(found, end, [number](const SCSIControllerEntry &entry) { return entry.host == number; });
    }
    return found == end || found->host != number ? kUnknownWord : found->controllerIndex;
}

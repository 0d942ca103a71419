// SPDX-License-Identifier: Apache-2.0
#include "collect/controllers/controller_build.h"

#include "collect/base/flat_table.h"
#include "collect/collection/discovery_lists.h"
#include "runtime/field_text.h"

#include <cstdlib>
#include <limits>

using namespace tavstrg;

namespace {

constexpr int32_t kMaxControllers = std::numeric_limits<uint16_t>::max(); // the counts are words

bool fitsCount(int32_t number)
{
    return number >= 0 && number <= kMaxControllers;
}

int makeSCSI(int32_t i, const SCSIHostEntry &host)
{
    if (!appendController(newSCSIController(i, host.host))) {
        return -1;
    }
    return MakeSCSIController(i, host);
}

int makeIDE(int32_t i, const IDEControllerInfo *channel)
{
    int32_t number = 0;
    if (channel == nullptr || !parseIDEChannelName(channel->name, &number)) {
        return -1;
    }
    ControllerEntry entry = newIDEController(i, i - CtrlNumMib.TotalSCSIController + 1, number);
    entry.busType = GetIDEControllerBusType(fieldText(channel->model));
    if (GetControllerInterrupt(channel->name, &entry) < 0 || GetControllerPort(channel->name, &entry) < 0) {
        return -1;
    }
    if (!appendController(entry)) {
        return -1;
    }
    return MakeIDEController(i);
}

int makeControllers(const ListHolder<SCSIHostEntry> &hosts)
{
    // Counted from the detail list and read again here: an adapter that came or went in between fails the collection.
    if (hosts.count != CtrlNumMib.TotalSCSIController) {
        return -1;
    }
    const IDEControllerInfo *channel = g_IDEGeneralInfo.controllers;
    for (int32_t i = 0; i < CtrlNumMib.TotalController; ++i) {
        int result = -1;
        if (i < CtrlNumMib.TotalSCSIController) {
            result = makeSCSI(i, hosts.entries[i]);
        } else if (i < CtrlNumMib.TotalSCSIController + CtrlNumMib.TotalIDEController) {
            result = makeIDE(i, channel);
            channel = channel == nullptr ? nullptr : channel->next;
        } else {
            result = appendController(newUnknownController(i)) ? 0 : -1;
        }
        if (result < 0) {
            return -1;
        }
    }
    return 0;
}

} // namespace

int InitController()
{
    const TraceScope scope;
    TRACE(kDetail, "_IN_");
    resetControllerCounters();
    if (GetControllerTotalNumber() < 0 || GetController() < 0) {
        return TRACED(-1, kFailure, "_OUT_ (-1)");
    }
    return TRACED(0, kDetail, "_OUT_ (0)");
}

int GetControllerTotalNumber()
{
    const TraceScope scope;
    TRACE(kDetail, "_IN_");
    if (GetControllerNumber() < 0 || MallocController() < 0) {
        return TRACED(-1, kFailure, "_OUT_ (-1)");
    }
    return TRACED(0, kDetail, "_OUT_ (0)");
}

int GetControllerNumber()
{
    const TraceScope scope;
    TRACE(kDetail, "_IN_");
    if (GetIDEControllerNumber_Leaf() < 0) {
        return TRACED(-1, kFailure, "_OUT_ GetIDEControllerNumber_Leaf() failed. (-1)");
    }
    if (GetSCSIControllerNumber_Leaf() < 0) {
        return TRACED(-1, kFailure, "_OUT_ GetSCSIControllerNumber_Leaf() failed. (-1)");
    }
    const int32_t total = CtrlNumMib.TotalSCSIController + CtrlNumMib.TotalIDEController;
    if (!fitsCount(total)) {
        return TRACED(-1, kFailure, "_OUT_ TotalController[%d] Failure!!", total);
    }
    CtrlNumMib.TotalController = static_cast<uint16_t>(total);
    return TRACED(0, kDetail, "_OUT_ TotalSCSIController=[%d] + TotalIDEController=[%d] = TotalController[%d]",
                  CtrlNumMib.TotalSCSIController, CtrlNumMib.TotalIDEController, CtrlNumMib.TotalController);
}

int GetIDEControllerNumber_Leaf()
{
    const TraceScope scope;
    TRACE(kDetail, "_IN_");
    if (!fitsCount(g_IDEGeneralInfo.controllerCount)) {
        return TRACED(-1, kFailure, "_OUT_ (-1)");
    }
    CtrlNumMib.TotalIDEController = static_cast<uint16_t>(g_IDEGeneralInfo.controllerCount);
    return TRACED(0, kDetail, "_OUT_ (0) CtrlNumMib.TotalIDEController=[%d]", CtrlNumMib.TotalIDEController);
}

int GetSCSIControllerNumber_Leaf()
{
    const TraceScope scope;
    TRACE(kDetail, "_IN_");
    const int32_t drivers = CtrlNumMib.TotalDriver + g_SCSIControllerTypeTotalNumber;
    if (!fitsCount(g_SCSIControllerTotalNumber) || !fitsCount(drivers)) {
        return TRACED(-1, kFailure, "_OUT_ (-1)");
    }
    CtrlNumMib.TotalSCSIController = static_cast<uint16_t>(g_SCSIControllerTotalNumber);
    CtrlNumMib.TotalDriver = static_cast<uint16_t>(drivers);
    return TRACED(0, kDetail, "_OUT_ (0) CtrlNumMib.TotalSCSIController=[%d]", CtrlNumMib.TotalSCSIController);
}

int GetController()
{
    const TraceScope scope;
    TRACE(kDetail, "_IN_");
    ListHolder<SCSIHostEntry> hosts;
    if (read_proc_scsi(&hosts.entries, &hosts.count) < 0) {
        return TRACED(-1, kFailure, "_OUT_ (-1)");
    }
    if (hosts.count > 1) {
        std::qsort(hosts.entries, static_cast<size_t>(hosts.count), sizeof(SCSIHostEntry), _CmpControllerTid);
    }
    const int result = makeControllers(hosts);
    hosts.release();
    if (result < 0) {
        return TRACED(-1, kFailure, "_OUT_ (-1)");
    }
    CtrlNumMib.TotalPort = static_cast<uint16_t>(port_cnt);
    CtrlNumMib.TotalDriver = static_cast<uint16_t>(driver_cnt);
    return TRACED(0, kDetail, "_OUT_ (0)");
}

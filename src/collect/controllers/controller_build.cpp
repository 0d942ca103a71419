// SPDX-License-Identifier: Apache-2.0
#include "collect/controllers/controller_build.h"

#include "collect/base/flat_table.h"
#include "collect/collection/collection.h"
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
    if (!appendController(collection(), newSCSIController(i, host.host))) {
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
    ControllerEntry entry = newIDEController(i, i - collection().CtrlNumMib.TotalSCSIController + 1, number);
    entry.busType = GetIDEControllerBusType(fieldText(channel->model));
    if (GetControllerInterrupt(channel->name, &entry) < 0 || GetControllerPort(channel->name, &entry) < 0) {
        return -1;
    }
    if (!appendController(collection(), entry)) {
        return -1;
    }
    return MakeIDEController(i);
}

int makeControllers(const ListHolder<SCSIHostEntry> &hosts)
{
    // Counted from the detail list and listed again here: a change of "storage.inf" (or, in procfs, of the adapters) in
    // between fails the collection.
    if (hosts.count != collection().CtrlNumMib.TotalSCSIController) {
        return -1;
    }
    const IDEControllerInfo *channel = collection().g_IDEGeneralInfo.controllers;
    for (int32_t i = 0; i < collection().CtrlNumMib.TotalController; ++i) {
        int result = -1;
        if (i < collection().CtrlNumMib.TotalSCSIController) {
            result = makeSCSI(i, hosts.entries[i]);
        } else if (i < collection().CtrlNumMib.TotalSCSIController + collection().CtrlNumMib.TotalIDEController) {
            result = makeIDE(i, channel);
            channel = channel == nullptr ? nullptr : channel->next;
        } else {
            result = appendController(collection(), newUnknownController(i)) ? 0 : -1;
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
    resetControllerCounters(collection());
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
    const int32_t total = collection().CtrlNumMib.TotalSCSIController + collection().CtrlNumMib.TotalIDEController;
    if (!fitsCount(total)) {
        return TRACED(-1, kFailure, "_OUT_ TotalController[%d] Failure!!", total);
    }
    collection().CtrlNumMib.TotalController = static_cast<uint16_t>(total);
    return TRACED(0, kDetail, "_OUT_ TotalSCSIController=[%d] + TotalIDEController=[%d] = TotalController[%d]",
                  collection().CtrlNumMib.TotalSCSIController, collection().CtrlNumMib.TotalIDEController,
                  collection().CtrlNumMib.TotalController);
}

int GetIDEControllerNumber_Leaf()
{
    const TraceScope scope;
    TRACE(kDetail, "_IN_");
    if (!fitsCount(collection().g_IDEGeneralInfo.controllerCount)) {
        return TRACED(-1, kFailure, "_OUT_ (-1)");
    }
    collection().CtrlNumMib.TotalIDEController = static_cast<uint16_t>(collection().g_IDEGeneralInfo.controllerCount);
    return TRACED(0, kDetail, "_OUT_ (0) CtrlNumMib.TotalIDEController=[%d]",
                  collection().CtrlNumMib.TotalIDEController);
}

int GetSCSIControllerNumber_Leaf()
{
    const TraceScope scope;
    TRACE(kDetail, "_IN_");
    const int32_t drivers = collection().CtrlNumMib.TotalDriver + collection().g_SCSIControllerTypeTotalNumber;
    if (!fitsCount(collection().g_SCSIControllerTotalNumber) || !fitsCount(drivers)) {
        return TRACED(-1, kFailure, "_OUT_ (-1)");
    }
    collection().CtrlNumMib.TotalSCSIController = static_cast<uint16_t>(collection().g_SCSIControllerTotalNumber);
    collection().CtrlNumMib.TotalDriver = static_cast<uint16_t>(drivers);
    return TRACED(0, kDetail, "_OUT_ (0) CtrlNumMib.TotalSCSIController=[%d]",
                  collection().CtrlNumMib.TotalSCSIController);
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
    collection().CtrlNumMib.TotalPort = static_cast<uint16_t>(collection().port_cnt);
    collection().CtrlNumMib.TotalDriver = static_cast<uint16_t>(collection().driver_cnt);
    return TRACED(0, kDetail, "_OUT_ (0)");
}

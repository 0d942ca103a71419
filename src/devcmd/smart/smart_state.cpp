// SPDX-License-Identifier: Apache-2.0
#include "devcmd/smart/smart_state.h"

#include "devcmd/smart/smart_watch.h"
#include "devcmd/smart/state_routines.h"
#include "records/records.h"
#include "runtime/cancel.h"
#include "runtime/trace.h"

using namespace tavstrg;

namespace {

// None for a kind that is never asked.
const StateRoutines *routinesOf(uint16_t kind)
{
    switch (kind) {
    case kDevKindScsi:
        return &kScsiStateRoutines;
    case kDevKindSata:
        return &kSataStateRoutines;
    default:
        return nullptr;
    }
}

bool fetchState(const StateRoutines &routines, HardDiskEntry &disk)
{
    const TraceScope scope("fetch_enable_disable");
    TRACE(kDetail, "_IN_");
    const bool known = routines.fetch(disk);
    return TRACED(known, kDetail, "_OUT_ SmartSupport=[%d] SmartEnableState=[%d]", static_cast<int>(disk.SmartSupport),
                  static_cast<int>(disk.SmartEnableState));
}

void doWork(const WhileSmartOn &whileOn)
{
    if (whileOn.work != nullptr) {
        whileOn.work(whileOn.context);
    }
}

// No cancel takes effect between switching a disk on that was off and switching it off again.
void watch(HardDiskEntry &disk, const StateRoutines &routines, const WhileSmartOn &whileOn)
{
    const bool wasOff = disk.SmartEnableState == kFoundDisabled;
    cancellationPoint();
    routines.enable(disk);
    if (!wasOff) {
        cancellationPoint();
    }
    if (disk.SmartSupport == kSupported) {
        routines.get(disk);
    }
    if (!wasOff) {
        cancellationPoint();
    }
    doWork(whileOn);
    if (wasOff) {
        routines.disable(disk);
    }
}

} // namespace

void tavstrg::watchSmartState(HardDiskEntry &disk, const WhileSmartOn &whileOn)
{
    const TraceScope scope("TAVStorageSmartWatch"); // readers of the trace find one of these for each disk
    TRACE(kDetail, "_IN_");
    if (g_SmartMode != kSmartModeOn) {
        doWork(whileOn);
        TRACE(kDetail, "_OUT_");
        return;
    }
    disk.SmartPredict = kVerdictUnknown;
    disk.SmartSupport = kSupportUnknown;
    disk.SmartEnableState = kStateNotRead;
    const StateRoutines *const routines = routinesOf(disk.DevKind);
    if (routines != nullptr && fetchState(*routines, disk)) {
        watch(disk, *routines, whileOn);
    } else {
        cancellationPoint();
        doWork(whileOn);
    }
    TRACE(kDetail, "_OUT_ SmartPredict=[%d]", disk.SmartPredict);
}

// SPDX-License-Identifier: Apache-2.0
#include "devcmd/smart/smart_watch.h"

#include "devcmd/smart/smart_routines.h"
#include "records/records.h"
#include "runtime/cancel.h"
#include "runtime/trace.h"

#include <cstddef>
#include <iterator>

using namespace tavstrg;

std::atomic<int32_t> g_SmartMode = 0;

namespace {

constexpr uint64_t kSupportUnknown = 1;
constexpr uint64_t kSupported = 2;
constexpr uint64_t kSmartNotSupported = 3;
constexpr uint64_t kStateNotRead = 0;
constexpr uint64_t kFoundDisabled = 3;

struct SmartRoutines {
    int (*fetch)(HardDiskEntry *hdt);
    void (*enable)(HardDiskEntry *hdt);
    void (*get)(HardDiskEntry *hdt);
    void (*disable)(HardDiskEntry *hdt);
};

// By DevKind.
constexpr SmartRoutines kRoutines[] = {
    {fetch_scsi_enable_disable, enable_scsi_smart, get_scsi_smart, disable_scsi_smart},
    {fetch_ata_enable_disable, enable_atapi_smart, get_atapi_smart, disable_atapi_smart},
    {fetch_ata_enable_disable, enable_sata_smart, get_sata_smart, disable_sata_smart},
};

// None for a kind that is not known.
const SmartRoutines *routinesOf(uint16_t kind)
{
    return kind < std::size(kRoutines) ? &kRoutines[kind] : nullptr;
}

// Each step sees the fields as the one before it left them. A disk whose support stays unknown is switched off again
// all the same: it may have been switched on before something failed.
void watch(HardDiskEntry &disk, const SmartRoutines *routines)
{
    if (disk.SmartSupport == kSupportUnknown) {
        if (disk.SmartEnableState == kStateNotRead) {
            fetch_enable_disable(&disk);
        }
        cancellationPoint(); // nothing is switched on yet
        if (routines != nullptr) {
            routines->enable(&disk);
        }
        if (disk.SmartEnableState != kFoundDisabled) {
            cancellationPoint(); // else not before it is switched off again
        }
    }
    if (routines == nullptr) {
        return;
    }
    if (disk.SmartSupport == kSupported && disk.SmartPredict == 0) {
        routines->get(&disk);
    }
    if (disk.SmartSupport != kSmartNotSupported && disk.SmartEnableState == kFoundDisabled) {
        routines->disable(&disk);
    }
}

} // namespace

int fetch_enable_disable(HardDiskEntry *hdt)
{
    const TraceScope scope;
    TRACE(kDetail, "_IN_");
    if (hdt == nullptr) {
        return TRACED(-1, kFailure, "_OUT_ hdt is NULL");
    }
    if (const SmartRoutines *const routines = routinesOf(hdt->DevKind)) {
        static_cast<void>(routines->fetch(hdt)); // its outcome is in the entry
    }
    return TRACED(0, kDetail, "_OUT_ ret=[%d]", 0);
}

void TAVStorageSmartWatch(HardDiskEntry *hdt)
{
    const TraceScope scope;
    TRACE(kDetail, "_IN_");
    if (g_SmartMode != kSmartModeOn) {
        TRACE(kDetail, "_OUT_");
        return;
    }
    if (hdt == nullptr) {
        TRACE(kFailure, "_OUT_ param(hdr) Failure!!");
        return;
    }
    watch(*hdt, routinesOf(hdt->DevKind));
    TRACE(kDetail, "_OUT_");
}

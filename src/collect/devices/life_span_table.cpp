// SPDX-License-Identifier: Apache-2.0
#include "collect/devices/life_span_table.h"

#include "collect/base/flat_table.h"
#include "collect/collection/collection.h"
#include "endurance/endurance.h"

#include <algorithm>
#include <utility>

using namespace tavstrg;

namespace {

// A new entry at the end of pLifeSpanTbl; null if memory is short, and then all entries are lost. How many drives have
// one is known only after the walk.
LifeSpanEntry *growLifeSpans()
{
    const int32_t count = collection().DevNumMib.TotalLifeSpan;
    const auto size = static_cast<int32_t>(sizeof(LifeSpanEntry)) * (count + 1);
    collection().pLifeSpanTblOld = std::exchange(collection().pLifeSpanTbl, nullptr);
    collection().pLifeSpanTbl = static_cast<LifeSpanEntry *>(memalloc(size));
    if (collection().pLifeSpanTbl == nullptr) {
        collection().DevNumMib.TotalLifeSpan = 0;
    } else if (collection().pLifeSpanTblOld != nullptr) {
        std::copy_n(collection().pLifeSpanTblOld, count, collection().pLifeSpanTbl);
    }
    if (collection().pLifeSpanTblOld != nullptr) {
        memfree(collection().pLifeSpanTblOld);
    }
    return collection().pLifeSpanTbl == nullptr ? nullptr : &collection().pLifeSpanTbl[count];
}

} // namespace

void GetLifeSpanInfo(const char *devName, const SCSIDeviceEntry *scsiEntry)
{
    AskNow asker(devName == nullptr ? "" : devName);
    addLifeSpan(devName, scsiEntry, asker);
}

void tavstrg::addLifeSpan(const char *devName, const SCSIDeviceEntry *scsiEntry, DiskAsker &asker)
{
    const TraceScope scope("GetLifeSpanInfo");
    TRACE(kDetail, "_IN_");
    if (devName == nullptr) {
        TRACE(kFailure, "_OUT_ param(devName) Failure!!");
        return;
    }
    if (scsiEntry == nullptr) {
        TRACE(kFailure, "_OUT_ param(scsiEntry) Failure!!");
        return;
    }
    TRACE(kDetail, "pScsi.Model[%s]", scsiEntry->model);
    const M2SSDInf *const rated = findM2SSD(g_M2SSDInf, g_M2SSDCnt, scsiEntry->model);
    if (rated == nullptr) {
        TRACE(kDetail, "_OUT_ Model:%s is not exist!!", scsiEntry->model);
        return;
    }
    LifeSpanEntry *const life = growLifeSpans();
    if (life == nullptr) {
        TRACE(kFailure, "_OUT_ pLifeSpanTbl alloc Failure!!");
        return;
    }
    life->Index = ++collection().DevNumMib.TotalLifeSpan;
    life->HDDIndex = scsiEntry->DeviceTypeIndex;
    life->EnduranceRemaining = kLevelUnknown;
    uint16_t endurance = kFigureUnknown;
    if (asker.wear(static_cast<uint8_t>(rated->attid), &endurance) < 0) {
        TRACE(kFailure, "_OUT_ GetLifeSpanInfoIoctl is Failure!!");
        return;
    }
    g_M2SSDEndu = endurance;
    life->EnduranceRemaining = enduranceLevel(*rated, endurance);
    TRACE(kDetail, "_OUT_ LifeSpan->Index=[%d] HDDIndex=[%d] EnduranceRemaining=[%d] endurance=[%d]", life->Index,
          life->HDDIndex, life->EnduranceRemaining, endurance);
}

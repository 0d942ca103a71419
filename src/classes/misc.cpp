// SPDX-License-Identifier: Apache-2.0
#include "classes/indexed.h"

#include "runtime/trace.h"

using namespace tavstrg;

namespace {

constexpr IndexedClass kMiscClass = {
    .classId = TAV_CID_STRG_MISC,
    .classIdName = "TAV_CID_STRG_MISC",
    .enumClassIdName = "TAV_CID_STRG_MISC",
    .recordName = "datMisc",
    .recordParam = "datmisc",
    .setPropInstName = "TAV_STRGMiscSetPropInst",
    .setPropInst = buildFrom<StrgDevRec, TAV_STRGMiscSetPropInst>,
};

} // namespace

CMPIStatus TAV_STRGMiscGetInstance(const CInfo *cInfo, const CMPIResult *rslt, const CMPIObjectPath *cop,
                                   const char **properties)
{
    const TraceScope scope;
    return indexedGetInstance(kMiscClass, cInfo, rslt, cop, properties);
}

CMPIStatus TAV_STRGMiscEnumInstances(const CInfo *cInfo, const CMPIResult *rslt, const CMPIObjectPath *cop,
                                     const char **properties)
{
    const TraceScope scope;
    return indexedEnumInstances(kMiscClass, cInfo, rslt, cop, properties);
}

CMPIInstance *TAV_STRGMiscSetPropInst(const CInfo *cInfo, const CMPIObjectPath *cop, const char **properties,
                                      const StrgDevRec *record)
{
    const TraceScope scope;
    return indexedSetPropInst(kMiscClass, cInfo, cop, properties, record);
}

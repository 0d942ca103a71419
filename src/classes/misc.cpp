// SPDX-License-Identifier: Apache-2.0
#include "classes/instance.h"

using namespace tavstrg;

namespace {

constexpr RecordClass kMiscClass = {
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
    return indexedGetInstance(kMiscClass, {cInfo, cop, properties, rslt});
}

CMPIStatus TAV_STRGMiscEnumInstances(const CInfo *cInfo, const CMPIResult *rslt, const CMPIObjectPath *cop,
                                     const char **properties)
{
    const TraceScope scope;
    return indexedEnumInstances(kMiscClass, {cInfo, cop, properties, rslt});
}

CMPIInstance *TAV_STRGMiscSetPropInst(const CInfo *cInfo, const CMPIObjectPath *cop, const char **properties,
                                      const StrgDevRec *record)
{
    const TraceScope scope;
    return indexedSetPropInst(kMiscClass, {cInfo, cop, properties}, record);
}

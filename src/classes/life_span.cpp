// SPDX-License-Identifier: Apache-2.0
#include "classes/instance.h"

using namespace tavstrg;

namespace {

constexpr RecordClass kLifeSpanClass = {
    .classId = TAV_CID_STRG_LIFE,
    .classIdName = "TAV_CID_STRG_LIFE",
    .enumClassIdName = "TAV_CID_STRG_LifeSpan", // deliberate: another spelling here
    .recordName = "datLifeSpan",
    .recordParam = "datlifespan",
    .setPropInstName = "TAV_STRGLifeSpanSetPropInst",
    .setPropInst = buildFrom<StrgLifeRec, TAV_STRGLifeSpanSetPropInst>,
};

} // namespace

CMPIStatus TAV_STRGLifeSpanGetInstance(const CInfo *cInfo, const CMPIResult *rslt, const CMPIObjectPath *cop,
                                       const char **properties)
{
    const TraceScope scope;
    return indexedGetInstance(kLifeSpanClass, {cInfo, cop, properties, rslt});
}

CMPIStatus TAV_STRGLifeSpanEnumInstances(const CInfo *cInfo, const CMPIResult *rslt, const CMPIObjectPath *cop,
                                         const char **properties)
{
    const TraceScope scope;
    return indexedEnumInstances(kLifeSpanClass, {cInfo, cop, properties, rslt});
}

CMPIInstance *TAV_STRGLifeSpanSetPropInst(const CInfo *cInfo, const CMPIObjectPath *cop, const char **properties,
                                          const StrgLifeRec *record)
{
    const TraceScope scope;
    return indexedSetPropInst(kLifeSpanClass, {cInfo, cop, properties}, record);
}

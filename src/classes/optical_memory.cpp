// SPDX-License-Identifier: Apache-2.0
#include "classes/instance.h"

using namespace tavstrg;

namespace {

constexpr RecordClass kOptMemClass = {
    .classId = TAV_CID_STRG_OPTM,
    .classIdName = "TAV_CID_STRG_OPTM",
    .enumClassIdName = "TAV_CID_STRG_OPTM",
    .recordName = "datOptm",
    .recordParam = "datoptm",
    .setPropInstName = "TAV_STRGOptMemSetPropInst",
    .setPropInst = buildFrom<StrgDevRec, TAV_STRGOptMemSetPropInst>,
};

} // namespace

CMPIStatus TAV_STRGOptMemGetInstance(const CInfo *cInfo, const CMPIResult *rslt, const CMPIObjectPath *cop,
                                     const char **properties)
{
    const TraceScope scope;
    return indexedGetInstance(kOptMemClass, {cInfo, cop, properties, rslt});
}

CMPIStatus TAV_STRGOptMemEnumInstances(const CInfo *cInfo, const CMPIResult *rslt, const CMPIObjectPath *cop,
                                       const char **properties)
{
    const TraceScope scope;
    return indexedEnumInstances(kOptMemClass, {cInfo, cop, properties, rslt});
}

CMPIInstance *TAV_STRGOptMemSetPropInst(const CInfo *cInfo, const CMPIObjectPath *cop, const char **properties,
                                        const StrgDevRec *record)
{
    const TraceScope scope;
    return indexedSetPropInst(kOptMemClass, {cInfo, cop, properties}, record);
}

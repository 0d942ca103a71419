// SPDX-License-Identifier: Apache-2.0
#include "classes/instance.h"

using namespace tavstrg;

namespace {

constexpr RecordClass kTapeClass = {
    .classId = TAV_CID_STRG_TAPE,
    .classIdName = "TAV_CID_STRG_TAPE",
    .enumClassIdName = "TAV_CID_STRG_TAPE",
    .recordName = "datTape",
    .recordParam = "dattap",
    .setPropInstName = "TAV_STRGTapeSetPropInst",
    .setPropInst = buildFrom<StrgDevRec, TAV_STRGTapeSetPropInst>,
};

} // namespace

CMPIStatus TAV_STRGTapeGetInstance(const CInfo *cInfo, const CMPIResult *rslt, const CMPIObjectPath *cop,
                                   const char **properties)
{
    const TraceScope scope;
    return indexedGetInstance(kTapeClass, {cInfo, cop, properties, rslt});
}

CMPIStatus TAV_STRGTapeEnumInstances(const CInfo *cInfo, const CMPIResult *rslt, const CMPIObjectPath *cop,
                                     const char **properties)
{
    const TraceScope scope;
    return indexedEnumInstances(kTapeClass, {cInfo, cop, properties, rslt});
}

CMPIInstance *TAV_STRGTapeSetPropInst(const CInfo *cInfo, const CMPIObjectPath *cop, const char **properties,
                                      const StrgDevRec *record)
{
    const TraceScope scope;
    return indexedSetPropInst(kTapeClass, {cInfo, cop, properties}, record);
}

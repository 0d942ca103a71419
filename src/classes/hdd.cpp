// SPDX-License-Identifier: Apache-2.0
#include "classes/instance.h"

using namespace tavstrg;

namespace {

constexpr RecordClass kHddClass = {
    .classId = TAV_CID_STRG_HDD,
    .classIdName = "TAV_CID_STRG_HDD",
    .enumClassIdName = "TAV_CID_STRG_HDD",
    .recordName = "datHdd",
    .recordParam = "dathdd",
    .setPropInstName = "TAV_STRGHddSetPropInst",
    .setPropInst = buildFrom<StrgHddRec, TAV_STRGHddSetPropInst>,
};

} // namespace

CMPIStatus TAV_STRGHddGetInstance(const CInfo *cInfo, const CMPIResult *rslt, const CMPIObjectPath *cop,
                                  const char **properties)
{
    const TraceScope scope;
    return indexedGetInstance(kHddClass, {cInfo, cop, properties, rslt});
}

CMPIStatus TAV_STRGHddEnumInstances(const CInfo *cInfo, const CMPIResult *rslt, const CMPIObjectPath *cop,
                                    const char **properties)
{
    const TraceScope scope;
    return indexedEnumInstances(kHddClass, {cInfo, cop, properties, rslt});
}

CMPIInstance *TAV_STRGHddSetPropInst(const CInfo *cInfo, const CMPIObjectPath *cop, const char **properties,
                                     const StrgHddRec *record)
{
    const TraceScope scope;
    return indexedSetPropInst(kHddClass, {cInfo, cop, properties}, record);
}

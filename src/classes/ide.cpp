// SPDX-License-Identifier: Apache-2.0
#include "classes/instance.h"

using namespace tavstrg;

namespace {

constexpr RecordClass kIdeClass = {
    .classId = TAV_CID_STRG_IDE,
    .classIdName = "TAV_CID_STRG_IDE",
    .enumClassIdName = "TAV_CID_STRG_IDE",
    .recordName = "datIde",
    .recordParam = "datide",
    .setPropInstName = "TAV_STRGIdeSetPropInst",
    .setPropInst = buildFrom<StrgIdeRec, TAV_STRGIdeSetPropInst>,
};

} // namespace

CMPIStatus TAV_STRGIdeGetInstance(const CInfo *cInfo, const CMPIResult *rslt, const CMPIObjectPath *cop,
                                  const char **properties)
{
    const TraceScope scope;
    return indexedGetInstance(kIdeClass, {cInfo, cop, properties, rslt});
}

CMPIStatus TAV_STRGIdeEnumInstances(const CInfo *cInfo, const CMPIResult *rslt, const CMPIObjectPath *cop,
                                    const char **properties)
{
    const TraceScope scope;
    return indexedEnumInstances(kIdeClass, {cInfo, cop, properties, rslt});
}

CMPIInstance *TAV_STRGIdeSetPropInst(const CInfo *cInfo, const CMPIObjectPath *cop, const char **properties,
                                     const StrgIdeRec *record)
{
    const TraceScope scope;
    return indexedSetPropInst(kIdeClass, {cInfo, cop, properties}, record);
}

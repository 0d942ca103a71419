// SPDX-License-Identifier: Apache-2.0
#include "classes/instance.h"

using namespace tavstrg;

namespace {

constexpr RecordClass kCdromClass = {
    .classId = TAV_CID_STRG_CDROM,
    .classIdName = "TAV_CID_STRG_CDROM",
    .enumClassIdName = "TAV_CID_STRG_CDROM",
    .recordName = "datCd",
    .recordParam = "datcd",
    .setPropInstName = "TAV_STRGCdromSetPropInst",
    .setPropInst = buildFrom<StrgDevRec, TAV_STRGCdromSetPropInst>,
};

} // namespace

CMPIStatus TAV_STRGCdromGetInstance(const CInfo *cInfo, const CMPIResult *rslt, const CMPIObjectPath *cop,
                                    const char **properties)
{
    const TraceScope scope;
    return indexedGetInstance(kCdromClass, {cInfo, cop, properties, rslt});
}

CMPIStatus TAV_STRGCdromEnumInstances(const CInfo *cInfo, const CMPIResult *rslt, const CMPIObjectPath *cop,
                                      const char **properties)
{
    const TraceScope scope;
    return indexedEnumInstances(kCdromClass, {cInfo, cop, properties, rslt});
}

CMPIInstance *TAV_STRGCdromSetPropInst(const CInfo *cInfo, const CMPIObjectPath *cop, const char **properties,
                                       const StrgDevRec *record)
{
    const TraceScope scope;
    return indexedSetPropInst(kCdromClass, {cInfo, cop, properties}, record);
}

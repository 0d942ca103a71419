// SPDX-License-Identifier: Apache-2.0
#include "classes/instance.h"

using namespace tavstrg;

namespace {

constexpr RecordClass kScsiClass = {
    .classId = TAV_CID_STRG_SCSI,
    .classIdName = "TAV_CID_STRG_SCSI",
    .enumClassIdName = "TAV_CID_STRG_SCSI",
    .recordName = "datScsi",
    .recordParam = "datscsi",
    .setPropInstName = "TAV_STRGScsiSetPropInst",
    .setPropInst = buildFrom<StrgScsiRec, TAV_STRGScsiSetPropInst>,
};

} // namespace

CMPIStatus TAV_STRGScsiGetInstance(const CInfo *cInfo, const CMPIResult *rslt, const CMPIObjectPath *cop,
                                   const char **properties)
{
    const TraceScope scope;
    return indexedGetInstance(kScsiClass, {cInfo, cop, properties, rslt});
}

CMPIStatus TAV_STRGScsiEnumInstances(const CInfo *cInfo, const CMPIResult *rslt, const CMPIObjectPath *cop,
                                     const char **properties)
{
    const TraceScope scope;
    return indexedEnumInstances(kScsiClass, {cInfo, cop, properties, rslt});
}

CMPIInstance *TAV_STRGScsiSetPropInst(const CInfo *cInfo, const CMPIObjectPath *cop, const char **properties,
                                      const StrgScsiRec *record)
{
    const TraceScope scope;
    return indexedSetPropInst(kScsiClass, {cInfo, cop, properties}, record);
}

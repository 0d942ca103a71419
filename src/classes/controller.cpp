// SPDX-License-Identifier: Apache-2.0
#include "classes/instance.h"

using namespace tavstrg;

namespace {

constexpr RecordClass kCtrlClass = {
    .classId = TAV_CID_STRG_CTRL,
    .classIdName = "TAV_CID_STRG_CTRL",
    .enumClassIdName = "TAV_CID_STRG_CTRL",
    .recordName = "datCtrl",
    .recordParam = "datctrl",
    .setPropInstName = "TAV_STRGCtrlSetPropInst",
    .setPropInst = buildFrom<StrgCtrlRec, TAV_STRGCtrlSetPropInst>,
};

} // namespace

CMPIStatus TAV_STRGCtrlGetInstance(const CInfo *cInfo, const CMPIResult *rslt, const CMPIObjectPath *cop,
                                   const char **properties)
{
    const TraceScope scope;
    return indexedGetInstance(kCtrlClass, {cInfo, cop, properties, rslt});
}

CMPIStatus TAV_STRGCtrlEnumInstances(const CInfo *cInfo, const CMPIResult *rslt, const CMPIObjectPath *cop,
                                     const char **properties)
{
    const TraceScope scope;
    return indexedEnumInstances(kCtrlClass, {cInfo, cop, properties, rslt});
}

CMPIInstance *TAV_STRGCtrlSetPropInst(const CInfo *cInfo, const CMPIObjectPath *cop, const char **properties,
                                      const StrgCtrlRec *record)
{
    const TraceScope scope;
    return indexedSetPropInst(kCtrlClass, {cInfo, cop, properties}, record);
}

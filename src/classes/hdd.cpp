#include "classes/indexed.h"

namespace {

constexpr IndexedClass kHddClass = {
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
    return indexedGetInstance(kHddClass, __func__, cInfo, rslt, cop, properties);
}

CMPIStatus TAV_STRGHddEnumInstances(const CInfo *cInfo, const CMPIResult *rslt, const CMPIObjectPath *cop,
                                    const char **properties)
{
    return indexedEnumInstances(kHddClass, __func__, cInfo, rslt, cop, properties);
}

CMPIInstance *TAV_STRGHddSetPropInst(const CInfo *cInfo, const CMPIObjectPath *cop, const char **properties,
                                     const StrgHddRec *record)
{
    return indexedSetPropInst(kHddClass, __func__, cInfo, cop, properties, record);
}

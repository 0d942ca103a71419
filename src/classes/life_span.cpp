#include "classes/indexed.h"

namespace {

constexpr IndexedClass kLifeSpanClass = {
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
    return indexedGetInstance(kLifeSpanClass, __func__, cInfo, rslt, cop, properties);
}

CMPIStatus TAV_STRGLifeSpanEnumInstances(const CInfo *cInfo, const CMPIResult *rslt, const CMPIObjectPath *cop,
                                         const char **properties)
{
    return indexedEnumInstances(kLifeSpanClass, __func__, cInfo, rslt, cop, properties);
}

CMPIInstance *TAV_STRGLifeSpanSetPropInst(const CInfo *cInfo, const CMPIObjectPath *cop, const char **properties,
                                          const StrgLifeRec *record)
{
    return indexedSetPropInst(kLifeSpanClass, __func__, cInfo, cop, properties, record);
}

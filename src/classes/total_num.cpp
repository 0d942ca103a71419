// SPDX-License-Identifier: Apache-2.0
#include "classes/instance.h"

using namespace tavstrg;

namespace {

constexpr RecordClass kTotalNumClass = {
    .classId = TAV_CID_STRG_TNUM,
    .classIdName = "TAV_CID_STRG_TNUM",
    .noDataText = "fsGetInstance() NoData Failure!!", // deliberate: another spelling here
    .recordParam = "dattotal",
    .setPropInstName = "TAV_STRGTotalNumSetPropInst",
    .setPropInst = buildFrom<StrgTnumRec, TAV_STRGTotalNumSetPropInst>,
};

} // namespace

CMPIStatus TAV_STRGTotalNumGetInstance(const CInfo *cInfo, const CMPIResult *rslt, const CMPIObjectPath *cop,
                                       const char **properties)
{
    const TraceScope scope;
    return singletonGetInstance(kTotalNumClass, {cInfo, cop, properties, rslt});
}

CMPIInstance *TAV_STRGTotalNumSetPropInst(const CInfo *cInfo, const CMPIObjectPath *cop, const char **properties,
                                          const StrgTnumRec *record)
{
    const TraceScope scope;
    return singletonSetPropInst(kTotalNumClass, {cInfo, cop, properties}, record);
}

// SPDX-License-Identifier: Apache-2.0
#include "classes/singleton.h"

#include "classes/instance.h"
#include "lifecycle/access.h"
#include "runtime/cmpi_data.h"
#include "runtime/holders.h"
#include "runtime/trace.h"

using namespace tavstrg;

namespace {

struct Build {
    CMPIStatus status;      // not OK: why there is no instance
    CMPIInstance *instance; // the caller's
};

// Builds the instance while nobody can replace the record.
Build buildSingleton(const SingletonClass &member, const CInfo *cInfo, const CMPIObjectPath *cop,
                     const char **properties, DatInfo dat)
{
    const RecordsReader reader(member.classId, dat);
    if (dat.datNum <= 0 || dat.datAdr == nullptr) {
        TRACE(kFailure, "strgGetInstance() Failure!!");
        return {failedCall(cInfo, "strgGetInstance"),
                nullptr}; // gone since the store handed it out: most likely a stop
    }
    CMPIInstance *const instance = member.setPropInst(cInfo, cop, properties, dat.datAdr);
    if (instance == nullptr) {
        TRACE(kFailure, "%s() Failure!!", member.setPropInstName);
        return {failedCall(cInfo, member.setPropInstName), nullptr};
    }
    return {{CMPI_RC_OK, nullptr}, instance};
}

CMPIStatus answer(const SingletonClass &member, const CInfo *cInfo, const CMPIResult *rslt, const CMPIObjectPath *cop,
                  const char **properties)
{
    DatInfo dat = {};
    const CMPIStatus read = readSingleton(member, cInfo, dat);
    if (read.rc != CMPI_RC_OK) {
        return read;
    }
    const Build build = buildSingleton(member, cInfo, cop, properties, dat);
    const CmpiHolder<CMPIInstance> instance(build.instance);
    if (build.status.rc != CMPI_RC_OK) {
        return build.status;
    }
    const CMPIStatus returned = returnInstance(cInfo, rslt, instance.get());
    if (returned.rc == CMPI_RC_OK) {
        returnDone(rslt);
    }
    return returned;
}

} // namespace

CMPIStatus tavstrg::missingSingleton(const SingletonClass &member, const CInfo *cInfo)
{
    TRACE(kFailure, "%s", member.noDataText);
    return statusWithChars(cInfo, CMPI_RC_ERR_NOT_FOUND, "NotFound Data");
}

CMPIStatus tavstrg::readSingleton(const SingletonClass &member, const CInfo *cInfo, DatInfo &dat)
{
    TRACE(kDetail, "strgGetInstance(%s)", member.classIdName);
    if (strgGetInstance(cInfo, member.classId, &dat) != 0 || lacksArray(dat)) {
        TRACE(kFailure, "strgGetInstance() Failure!!");
        return failedCall(cInfo, "strgGetInstance");
    }
    return dat.datNum > 0 ? CMPIStatus{CMPI_RC_OK, nullptr} : missingSingleton(member, cInfo);
}

CMPIStatus tavstrg::singletonGetInstance(const SingletonClass &member, const CInfo *cInfo, const CMPIResult *rslt,
                                         const CMPIObjectPath *cop, const char **properties)
{
    return tracedAnswer(cInfo, [&] { return answer(member, cInfo, rslt, cop, properties); });
}

CMPIInstance *tavstrg::singletonSetPropInst(const SingletonClass &member, const CInfo *cInfo, const CMPIObjectPath *cop,
                                            const char **properties, const void *record)
{
    return buildInstance(cInfo, cop, properties, kClasses[member.classId], member.recordParam, record);
}

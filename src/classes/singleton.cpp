#include "classes/singleton.h"

#include "classes/instance.h"
#include "runtime/holders.h"
#include "runtime/status.h"
#include "runtime/trace.h"
#include "lifecycle/access.h"

namespace {

struct Build {
    CMPIStatus status;      // not OK: why there is no instance
    CMPIInstance *instance; // the caller's
};

// Builds the instance while nobody can replace the record.
Build buildSingleton(const SingletonClass &member, const char *function, const CInfo *cInfo, const CMPIObjectPath *cop,
                     const char **properties, DatInfo dat)
{
    const RecordsReader reader(member.classId, dat);
    if (dat.datNum <= 0 || dat.datAdr == nullptr) {
        TRACE_AS(function, kFailure, "strgGetInstance() Failure!!");
        return {failedCall(cInfo, "strgGetInstance"),
                nullptr}; // gone since the store handed it out: most likely a stop
    }
    CMPIInstance *const instance = member.setPropInst(cInfo, cop, properties, dat.datAdr);
    if (instance == nullptr) {
        TRACE_AS(function, kFailure, "%s() Failure!!", member.setPropInstName);
        return {failedCall(cInfo, member.setPropInstName), nullptr};
    }
    return {{CMPI_RC_OK, nullptr}, instance};
}

CMPIStatus answer(const SingletonClass &member, const char *function, const CInfo *cInfo, const CMPIResult *rslt,
                  const CMPIObjectPath *cop, const char **properties)
{
    DatInfo dat = {};
    const CMPIStatus read = readSingleton(member, function, cInfo, dat);
    if (read.rc != CMPI_RC_OK) {
        return read;
    }
    const Build build = buildSingleton(member, function, cInfo, cop, properties, dat);
    const CmpiHolder<CMPIInstance> instance(build.instance);
    if (build.status.rc != CMPI_RC_OK) {
        return build.status;
    }
    const CMPIStatus returned = returnInstance(function, cInfo, rslt, instance.get());
    if (returned.rc == CMPI_RC_OK) {
        returnDone(function, rslt);
    }
    return returned;
}

} // namespace

CMPIStatus missingSingleton(const SingletonClass &member, const char *function, const CInfo *cInfo)
{
    TRACE_AS(function, kFailure, "%s", member.noDataText);
    return statusWithChars(cInfo, CMPI_RC_ERR_NOT_FOUND, "NotFound Data");
}

CMPIStatus readSingleton(const SingletonClass &member, const char *function, const CInfo *cInfo, DatInfo &dat)
{
    TRACE_AS(function, kDetail, "strgGetInstance(%s)", member.classIdName);
    if (strgGetInstance(cInfo, member.classId, &dat) != 0 || lacksArray(dat)) {
        TRACE_AS(function, kFailure, "strgGetInstance() Failure!!");
        return failedCall(cInfo, "strgGetInstance");
    }
    return dat.datNum > 0 ? CMPIStatus{CMPI_RC_OK, nullptr} : missingSingleton(member, function, cInfo);
}

CMPIStatus singletonGetInstance(const SingletonClass &member, const char *function, const CInfo *cInfo,
                                const CMPIResult *rslt, const CMPIObjectPath *cop, const char **properties)
{
    return tracedAnswer(function, cInfo, [&] { return answer(member, function, cInfo, rslt, cop, properties); });
}

CMPIInstance *singletonSetPropInst(const SingletonClass &member, const char *function, const CInfo *cInfo,
                                   const CMPIObjectPath *cop, const char **properties, const void *record)
{
    return buildInstance(function, cInfo, cop, properties, kClasses[member.classId], member.recordParam, record);
}

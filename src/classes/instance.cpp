#include "classes/instance.h"

#include "runtime/holders.h"
#include "runtime/memory.h"
#include "runtime/request.h"
#include "runtime/status.h"
#include "runtime/trace.h"

#include <cstdio>

CMPIObjectPath *newPath(const char *function, const CInfo *cInfo, const CMPIObjectPath *cop, const char *className)
{
    char *nameSpace = getNameSpace(cop);
    if (nameSpace == nullptr) {
        return TRACED_AS(function, nullptr, kFailure, "_OUT_ CMGetCharPtr() Failure!!");
    }
    TRACE_AS(function, kDetail, "CMNewObjectPath() NameSpace=[%s]", nameSpace);
    CMPIStatus status{};
    CmpiHolder<CMPIObjectPath> path(cInfo->broker->eft->newObjectPath(cInfo->broker, nameSpace, className, &status));
    memfree(nameSpace, function, __LINE__);
    if (status.rc != CMPI_RC_OK || !path) {
        return TRACED_AS(function, nullptr, kFailure, "_OUT_ CMNewObjectPath() Failure!!");
    }
    return path.handOver();
}

CMPIInstance *newInstance(const char *function, const CInfo *cInfo, const CMPIObjectPath *path)
{
    TRACE_AS(function, kDetail, "CMNewInstance()");
    CMPIStatus status{};
    CmpiHolder<CMPIInstance> instance(cInfo->broker->eft->newInstance(cInfo->broker, path, &status));
    if (status.rc != CMPI_RC_OK || !instance) {
        return TRACED_AS(function, nullptr, kFailure, "_OUT_ CMNewInstance() Failure!!");
    }
    return instance.handOver();
}

bool limitProperties(const char *function, CMPIInstance *instance, const char **properties)
{
    TRACE_AS(function, kDetail, "CMSetPropertyFilter()");
    if (instance->ft->setPropertyFilter(instance, properties, nullptr).rc != CMPI_RC_OK) {
        TRACE_AS(function, kFailure, "CMSetPropertyFilter() Failure!!");
        return TRACED_AS(function, false, kDetail, "_OUT_");
    }
    return true;
}

void setProperties(const char *function, CMPIInstance *instance, const ClassDesc &desc, const void *record)
{
    for (const FieldDesc &field : desc.fields) {
        if (field.key || (field.use & kPublished) == 0) {
            continue;
        }
        // A text is passed as the text itself, a number by the address of its field.
        const char *const value = fieldChars(field, record);
        if (field.type == CMPI_chars) {
            TRACE_AS(function, kDetail, "CMSetProperty() %s=[%s]", field.name, value);
        } else {
            TRACE_AS(function, kDetail, "CMSetProperty() %s=[%d]", field.name,
                     static_cast<int>(fieldNumber(field, record)));
        }
        instance->ft->setProperty(instance, field.name, reinterpret_cast<const CMPIValue *>(value), field.type);
    }
}

CMPIStatus failedCall(const CInfo *cInfo, const char *call)
{
    char message[64];
    std::snprintf(message, sizeof message, "%s() FAILED", call);
    return statusWithChars(cInfo, CMPI_RC_ERR_FAILED, message);
}

CMPIStatus returnInstance(const char *function, const CInfo *cInfo, const CMPIResult *rslt,
                          const CMPIInstance *instance)
{
    TRACE_AS(function, kDetail, "CMReturnInstance()");
    if (rslt->ft->returnInstance(rslt, instance).rc != CMPI_RC_OK) {
        TRACE_AS(function, kFailure, "CMReturnInstance() Failure!!");
        return failedCall(cInfo, "CMReturnInstance");
    }
    return {CMPI_RC_OK, nullptr};
}

void returnDone(const char *function, const CMPIResult *rslt)
{
    TRACE_AS(function, kDetail, "CMReturnDone()");
    rslt->ft->returnDone(rslt);
}

CMPIInstance *buildInstance(const char *function, const CInfo *cInfo, const CMPIObjectPath *cop,
                            const char **properties, const ClassDesc &desc, const char *recordParam, const void *record,
                            KeySetter *setKey)
{
    TRACE_AS(function, kDetail, "_IN_");
    if (cInfo == nullptr) {
        return TRACED_AS(function, nullptr, kFailure, "_OUT_ param(cInfo) Failure!!");
    }
    if (cop == nullptr) {
        return TRACED_AS(function, nullptr, kFailure, "_OUT_ Param(cop) Failure!!");
    }
    if (record == nullptr) {
        return TRACED_AS(function, nullptr, kFailure, "_OUT_ Param(%s) Failure!!", recordParam);
    }
    const CmpiHolder<CMPIObjectPath> path(newPath(function, cInfo, cop, desc.cimName));
    if (!path) {
        return nullptr;
    }
    CmpiHolder<CMPIInstance> instance(newInstance(function, cInfo, path.get()));
    if (!instance || !limitProperties(function, instance.get(), properties)) {
        return nullptr;
    }
    if (setKey != nullptr) {
        setKey(function, path.get(), instance.get(), record);
    }
    setProperties(function, instance.get(), desc, record);
    return TRACED_AS(function, instance.handOver(), kDetail, "_OUT_");
}

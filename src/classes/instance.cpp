// SPDX-License-Identifier: Apache-2.0
#include "classes/instance.h"

#include "runtime/cmpi_data.h"
#include "runtime/holders.h"
#include "runtime/memory.h"
#include "runtime/request.h"
#include "runtime/trace.h"

#include <cstdio>

using namespace tavstrg;

CMPIObjectPath *tavstrg::newPath(const CInfo *cInfo, const CMPIObjectPath *cop, const char *className)
{
    char *nameSpace = getNameSpace(cop);
    if (nameSpace == nullptr) {
        return TRACED(nullptr, kFailure, "_OUT_ CMGetCharPtr() Failure!!");
    }
    TRACE(kDetail, "CMNewObjectPath() NameSpace=[%s]", nameSpace);
    CMPIStatus status{};
    CmpiHolder<CMPIObjectPath> path(cInfo->broker->eft->newObjectPath(cInfo->broker, nameSpace, className, &status));
    memfree(nameSpace);
    if (status.rc != CMPI_RC_OK || !path) {
        return TRACED(nullptr, kFailure, "_OUT_ CMNewObjectPath() Failure!!");
    }
    return path.handOver();
}

CMPIInstance *tavstrg::newInstance(const CInfo *cInfo, const CMPIObjectPath *path)
{
    TRACE(kDetail, "CMNewInstance()");
    CMPIStatus status{};
    CmpiHolder<CMPIInstance> instance(cInfo->broker->eft->newInstance(cInfo->broker, path, &status));
    if (status.rc != CMPI_RC_OK || !instance) {
        return TRACED(nullptr, kFailure, "_OUT_ CMNewInstance() Failure!!");
    }
    return instance.handOver();
}

bool tavstrg::limitProperties(CMPIInstance *instance, const char **properties)
{
    TRACE(kDetail, "CMSetPropertyFilter()");
    if (instance->ft->setPropertyFilter(instance, properties, nullptr).rc != CMPI_RC_OK) {
        TRACE(kFailure, "CMSetPropertyFilter() Failure!!");
        return TRACED(false, kDetail, "_OUT_");
    }
    return true;
}

void tavstrg::setProperties(CMPIInstance *instance, const ClassDesc &desc, const void *record)
{
    for (const FieldDesc &field : desc.fields) {
        if (field.key || (field.use & kPublished) == 0) {
            continue;
        }
        // A text is passed as the text itself, a number by the address of its field.
        const char *const value = fieldChars(field, record);
        if (field.type == CMPI_chars) {
            TRACE(kDetail, "CMSetProperty() %s=[%s]", field.name, value);
        } else {
            TRACE(kDetail, "CMSetProperty() %s=[%d]", field.name, static_cast<int>(fieldNumber(field, record)));
        }
        instance->ft->setProperty(instance, field.name, reinterpret_cast<const CMPIValue *>(value), field.type);
    }
}

CMPIStatus tavstrg::failedCall(const CInfo *cInfo, const char *call)
{
    char message[64];
    std::snprintf(message, sizeof message, "%s() FAILED", call);
    return statusWithChars(cInfo, CMPI_RC_ERR_FAILED, message);
}

CMPIStatus tavstrg::returnInstance(const CInfo *cInfo, const CMPIResult *rslt, const CMPIInstance *instance)
{
    TRACE(kDetail, "CMReturnInstance()");
    if (rslt->ft->returnInstance(rslt, instance).rc != CMPI_RC_OK) {
        TRACE(kFailure, "CMReturnInstance() Failure!!");
        return failedCall(cInfo, "CMReturnInstance");
    }
    return {CMPI_RC_OK, nullptr};
}

void tavstrg::returnDone(const CMPIResult *rslt)
{
    TRACE(kDetail, "CMReturnDone()");
    rslt->ft->returnDone(rslt);
}

CMPIInstance *tavstrg::buildInstance(const CInfo *cInfo, const CMPIObjectPath *cop, const char **properties,
                                     const ClassDesc &desc, const char *recordParam, const void *record,
                                     KeySetter *setKey)
{
    TRACE(kDetail, "_IN_");
    if (cInfo == nullptr) {
        return TRACED(nullptr, kFailure, "_OUT_ param(cInfo) Failure!!");
    }
    if (cop == nullptr) {
        return TRACED(nullptr, kFailure, "_OUT_ Param(cop) Failure!!");
    }
    if (record == nullptr) {
        return TRACED(nullptr, kFailure, "_OUT_ Param(%s) Failure!!", recordParam);
    }
    const CmpiHolder<CMPIObjectPath> path(newPath(cInfo, cop, desc.cimName));
    if (!path) {
        return nullptr;
    }
    CmpiHolder<CMPIInstance> instance(newInstance(cInfo, path.get()));
    if (!instance || !limitProperties(instance.get(), properties)) {
        return nullptr;
    }
    if (setKey != nullptr) {
        setKey(path.get(), instance.get(), record);
    }
    setProperties(instance.get(), desc, record);
    return TRACED(instance.handOver(), kDetail, "_OUT_");
}

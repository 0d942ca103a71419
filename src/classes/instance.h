// SPDX-License-Identifier: Apache-2.0
// The steps from a record to a CIM instance that all classes share. Each traces in the name of the function that it
// serves; the objects made belong to the caller; null on failure, which was traced.
#pragma once

#include "records/records.h"
#include "runtime/mode.h"
#include "runtime/trace.h"

namespace tavstrg {

// Object path of a class in the namespace of cop.
CMPIObjectPath *newPath(const CInfo *cInfo, const CMPIObjectPath *cop, const char *className);
// Instance of a path, without properties yet.
CMPIInstance *newInstance(const CInfo *cInfo, const CMPIObjectPath *path);
// Limits what is set from now on to the client's property list (null: everything). Whether that worked.
bool limitProperties(CMPIInstance *instance, const char **properties);
// Sets every published property of a class but its key, in order. A broker that refuses one is not heard: the instance
// then lacks it.
void setProperties(CMPIInstance *instance, const ClassDesc &desc, const void *record);

// Sets the key of an instance that has one.
using KeySetter = void(CMPIObjectPath *path, CMPIInstance *instance, const void *record);
// The whole way from a record to an instance: checks, path, instance, filter, key, properties. recordParam names the
// record in the trace of its absence.
CMPIInstance *buildInstance(const CInfo *cInfo, const CMPIObjectPath *cop, const char **properties,
                            const ClassDesc &desc, const char *recordParam, const void *record,
                            KeySetter *setKey = nullptr);

// Frame of a GetInstance or EnumInstances handler: entry, check of cInfo, the answer, exit.
template <class Answer> CMPIStatus tracedAnswer(const CInfo *cInfo, Answer answer)
{
    TRACE(kDetail, "_IN_");
    CMPIStatus status{CMPI_RC_ERR_FAILED, nullptr};
    if (cInfo == nullptr) {
        TRACE(kFailure, "param(cInfo) Failure!!");
    } else {
        status = answer();
    }
    return TRACED(status, kDetail, "_OUT_");
}

// Whether a class's descriptor contradicts itself: records, but no array.
inline bool lacksArray(const DatInfo &dat)
{
    return dat.datNum > 0 && dat.datAdr == nullptr;
}

// The status of a call that failed, "<call>() FAILED".
CMPIStatus failedCall(const CInfo *cInfo, const char *call);

// Returns the instance to the broker and traces; OK or "CMReturnInstance() FAILED".
CMPIStatus returnInstance(const CInfo *cInfo, const CMPIResult *rslt, const CMPIInstance *instance);
// Closes the result and traces.
void returnDone(const CMPIResult *rslt);

} // namespace tavstrg

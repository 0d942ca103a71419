// SPDX-License-Identifier: Apache-2.0
// The two classes with exactly one record, one instance and no key, told once. Everything is traced in the names of the
// class's own functions.
#pragma once

#include "classes/classes.h"

namespace tavstrg {

struct SingletonClass {
    int classId;
    const char *classIdName; // as traced before the store is asked
    const char *noDataText;  // trace of a missing record
    const char *recordParam; // of SetPropInst's record in traces
    const char *setPropInstName;
    InstanceBuilder<void> *setPropInst;
};

CMPIStatus singletonGetInstance(const SingletonClass &member, const CInfo *cInfo, const CMPIResult *rslt,
                                const CMPIObjectPath *cop, const char **properties);
CMPIInstance *singletonSetPropInst(const SingletonClass &member, const CInfo *cInfo, const CMPIObjectPath *cop,
                                   const char **properties, const void *record);

// Brings the class up to date and looks whether its record is there: OK, "strgGetInstance() FAILED" or "NotFound Data".
CMPIStatus readSingleton(const SingletonClass &member, const CInfo *cInfo, DatInfo &dat);
// The failure of a record that is not there.
CMPIStatus missingSingleton(const SingletonClass &member, const CInfo *cInfo);

} // namespace tavstrg

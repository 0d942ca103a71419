// SPDX-License-Identifier: Apache-2.0
// The family of the nine classes that are keyed by Index, told once. A member is one IndexedClass and three functions
// under its own names, in which everything is traced.
#pragma once

#include "classes/classes.h"

namespace tavstrg {

struct IndexedClass {
    int classId;
    const char *classIdName;     // as traced before the store is asked
    const char *enumClassIdName; // the same for EnumInstances
    const char *recordName;      // of a record in traces
    const char *recordParam;     // of SetPropInst's record in traces
    const char *setPropInstName;
    InstanceBuilder<void> *setPropInst;
};

CMPIStatus indexedGetInstance(const IndexedClass &member, const CInfo *cInfo, const CMPIResult *rslt,
                              const CMPIObjectPath *cop, const char **properties);
CMPIStatus indexedEnumInstances(const IndexedClass &member, const CInfo *cInfo, const CMPIResult *rslt,
                                const CMPIObjectPath *cop, const char **properties);
CMPIInstance *indexedSetPropInst(const IndexedClass &member, const CInfo *cInfo, const CMPIObjectPath *cop,
                                 const char **properties, const void *record);

} // namespace tavstrg

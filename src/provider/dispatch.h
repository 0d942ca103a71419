// SPDX-License-Identifier: Apache-2.0
// Which handler answers which request: one row per class.
#pragma once

#include "classes/classes.h"

#include <span>

namespace tavstrg {

// A handler and its name as traced before it is called.
struct InstanceCall {
    InstanceHandler *handler;
    const char *tracedAs;
};

struct MethodCall {
    const char *method;
    // The six parameters are those of the broker's interface.
    CMPIStatus (*handler)(const CInfo *cInfo, const CMPIResult *rslt, const CMPIObjectPath *cop, const char *methodName,
                          const CMPIArgs *in, CMPIArgs *out);
    const char *tracedAs;
};

struct DispatchRow {
    const char *className; // compared exactly
    InstanceCall get;
    InstanceCall enumerate;
    std::span<const MethodCall> methods; // empty: the class has no methods
    InstanceCall names;                  // of EnumInstanceNames; without a handler it is not supported
    bool always;                         // answered in service mode even while the monitoring thread does not run
    bool statusIsReturned;               // a method's outcome is its return value, and the call itself succeeds
};

// The row of a class, or null.
const DispatchRow *findClass(const char *className);
// The row of the class of a path if its requests need no store, or null. Traces nothing.
const DispatchRow *findClassWithoutStore(const CMPIObjectPath *cop);
// The row of the class of a path if EnumInstanceNames is supported for it, or null. Traces nothing.
const DispatchRow *findClassWithNames(const CMPIObjectPath *cop);
// The method of a class, or null.
const MethodCall *findMethod(const DispatchRow &row, const char *method);

} // namespace tavstrg

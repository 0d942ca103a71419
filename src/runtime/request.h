// SPDX-License-Identifier: Apache-2.0
// Keys, arguments and names of requests. All report failures through their result and a trace, never a status.
#pragma once

#include "runtime/mode.h"

#include <cstdint>
#include <span>

// The key "Index" as a number 0..65535 (low 16 bits of what was sent); -1 when there is none. A numeric 0 counts as
// none.
int getKeyIndex(const CMPIObjectPath *cop);
// An integer argument: 32-bit signed from text, 16-bit unsigned from a number; -1 when missing. A numeric 0 is missing.
int32_t getArgToInt(const CMPIArgs *in, const char *name);
// Heap copies of the names in a path; null on failure. The caller frees them (memfree).
char *getNameSpace(const CMPIObjectPath *cop);
char *getClassName(const CMPIObjectPath *cop);
// Number of instances of a class, with a cloned array of them, which the caller releases, at *array; -1 on failure.
int getEnumArray(const CInfo *cInfo, const char *nameSpace, const char *className, CMPIArray **array);

namespace tavstrg {

// A key that is a text, cut to what fits. False, with a trace, when there is none.
bool getKeyText(const CMPIObjectPath *cop, const char *name, std::span<char> out);

// Whether a path is one of a class. Traces nothing; false where the broker does not say it.
bool isPathOf(const CMPIObjectPath *cop, const char *className);

} // namespace tavstrg

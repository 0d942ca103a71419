// SPDX-License-Identifier: Apache-2.0
// "storage.inf": the host-adapter drivers whose controllers and devices are managed.
#pragma once

#include "collect/inf/inf_section.h"

#include <cstddef>
#include <cstdint>

namespace tavstrg {

constexpr char kStorageInf[] = "storage.inf";

constexpr size_t kMaxDriverName = 64;

struct StorageInfo {
    char name[kMaxDriverName + 1]; // a name of 64 characters is kept whole
    StorageInfo *next;
};

} // namespace tavstrg

// Builds the two lists, each in the reverse of the file's order; either pointer may be null, not both. Returns 1 when
// they were built and 0 otherwise, with *status 0, 1 (absent or unusable), -3 (no list), -4 (too large) or -9.
int CreatStorageInfoTable(tavstrg::StorageInfo **managementList, tavstrg::StorageInfo **diagnosticList,
                          int32_t *status);
// Frees every node and nulls the list. Returns 1, or 0 for a null list.
int DestroyStorageInfoTable(tavstrg::StorageInfo **list);
// Puts a node at the head; a name that cannot be allocated is dropped.
void AddStorageInfoTable(tavstrg::StorageInfo **list, const char *name);
// Driver name of one line into name (kMaxDriverName + 1 bytes). Returns 1, or 0 with *status -3, -4 or -5.
int GetInfoFromLine(const char *line, char *name, int32_t *status);

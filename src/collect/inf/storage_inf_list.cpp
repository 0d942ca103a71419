// SPDX-License-Identifier: Apache-2.0
#include "collect/inf/storage_inf.h"

#include "collect/base/node_list.h"
#include "runtime/field_text.h"

void AddStorageInfoTable(StorageInfo **list, const char *name)
{
    const TraceScope scope;
    TRACE(kDetail, "_IN_");
    if (list == nullptr) {
        TRACE(kFailure, "_OUT_ param(list) Failure!!");
        return;
    }
    if (name == nullptr) {
        TRACE(kFailure, "_OUT_ param(name) Failure!!");
        return;
    }
    auto *const node = static_cast<StorageInfo *>(memalloc(sizeof(StorageInfo)));
    if (node == nullptr) {
        TRACE(kFailure, "_OUT_ malloc for pMANAGE_TBL error.");
        return;
    }
    copyText(node->name, name);
    node->next = *list;
    *list = node;
    TRACE(kDetail, "_OUT_");
}

int DestroyStorageInfoTable(StorageInfo **list)
{
    const TraceScope scope;
    TRACE(kDetail, "_IN_");
    if (list == nullptr || *list == nullptr) {
        return TRACED(0, kDetail, "_OUT_ pManageTbl is NULL.");
    }
    freeNodes(*list);
    return TRACED(1, kDetail, "_OUT_ return 1");
}

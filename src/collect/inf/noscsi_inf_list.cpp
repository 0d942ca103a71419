// SPDX-License-Identifier: Apache-2.0
// The list of unmanaged devices: its nodes, and whether a device is on it.

#include "collect/base/node_list.h"
#include "collect/inf/noscsi_inf.h"
#include "runtime/field_text.h"

NoSCSIInfo *pleafNoSCSI_Tbl = nullptr;

namespace {

bool matches(const NoSCSIInfo &node, std::string_view vendor, std::string_view model)
{
    // Deliberate: vendors are compared whole and models as prefixes, both with case and padding.
    const bool sameVendor = fieldText(node.vendor) == vendor;
    const bool sameModel = model.starts_with(fieldText(node.model));
    if (node.model[0] == '\0') {
        return sameVendor;
    }
    return node.vendor[0] == '\0' ? sameModel : sameVendor && sameModel;
}

const NoSCSIInfo *findUnmanaged(const NoSCSIInfo *list, std::string_view vendor, std::string_view model)
{
    const NoSCSIInfo *node = list;
    while (node != nullptr && !matches(*node, vendor, model)) {
        node = node->next;
    }
    return node;
}

} // namespace

void AddNoSCSITable(NoSCSIInfo **list, const char *vendor, const char *model)
{
    const TraceScope scope;
    TRACE(kDetail, "_IN_");
    if (list == nullptr) {
        TRACE(kFailure, "_OUT_ param(list) Failure!!");
        return;
    }
    if (vendor == nullptr) {
        TRACE(kFailure, "_OUT_ param(vendor) Failure!!");
        return;
    }
    if (model == nullptr) {
        TRACE(kFailure, "_OUT_ param(model) Failure!!");
        return;
    }
    if (vendor[0] == '\0' && model[0] == '\0') {
        TRACE(kFailure, "_OUT_ strlen = 0");
        return;
    }
    auto *const node = static_cast<NoSCSIInfo *>(memalloc(sizeof(NoSCSIInfo)));
    if (node == nullptr) {
        TRACE(kFailure, "_OUT_ malloc for PNOSCSI_INFO error.");
        return;
    }
    copyText(node->vendor, vendor);
    copyText(node->model, model);
    node->next = *list;
    *list = node;
    TRACE(kDetail, "_OUT_");
}

int TAVStorageNoManage(const NoSCSIInfo *list, const char *vendor, const char *model)
{
    const TraceScope scope;
    TRACE(kDetail, "_IN_");
    if (vendor == nullptr || model == nullptr) {
        return TRACED(0, kFailure, "_OUT_ param error.");
    }
    const NoSCSIInfo *const node = findUnmanaged(list, vendor, model);
    if (node == nullptr) {
        return TRACED(0, kDetail, "_OUT_ vendor=[%s] model=[%s] return 0.(watched)", vendor, model);
    }
    if (node->model[0] == '\0') {
        TRACE(kDetail, "break tbl->vendor=[%s]", node->vendor);
    } else if (node->vendor[0] == '\0') {
        TRACE(kDetail, "break tbl->model=[%s]", node->model);
    } else {
        TRACE(kDetail, "break tbl->vendor=[%s] tbl->model=[%s]", node->vendor, node->model);
    }
    return TRACED(1, kDetail, "_OUT_ vendor=[%s] model=[%s] return 1.(not watched)", vendor, model);
}

void DestroyNoManageSCSIInfoTable(NoSCSIInfo **list)
{
    const TraceScope scope;
    TRACE(kDetail, "_IN_");
    if (list == nullptr) {
        TRACE(kFailure, "_OUT_ param(list) Failure!!");
        return;
    }
    freeNodes(*list);
    TRACE(kDetail, "_OUT_");
}

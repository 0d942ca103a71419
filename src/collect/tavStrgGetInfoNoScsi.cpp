#include "collect/tavStrgGetInfoNoScsi.h"

#include "provider/runtime/tavCommonMemory.h"
#include "provider/runtime/tavCommonText.h"
#include "provider/runtime/tavCommonTrace.h"

#include <string_view>

NoSCSIInfo *pleafNoSCSI_Tbl = nullptr;

namespace {

constexpr int32_t kAbsent = 1;
constexpr int32_t kNoListAskedFor = -3;

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

// The file is not read yet: the list reports itself absent, so that nothing is left out.
int CreateNoSCSIInfoTable(NoSCSIInfo **managementList, NoSCSIInfo **diagnosticList, int32_t *status)
{
    TRACE(kDetail, "_IN_");
    if (status == nullptr) {
        return TRACED(0, kFailure, "_OUT_ iFlagParse is NULL.");
    }
    if (managementList == nullptr && diagnosticList == nullptr) {
        *status = kNoListAskedFor;
        return TRACED(0, kFailure, "_OUT_ both pNoSCSI_Tbl and pNoDiagnoTbl is NULL.");
    }
    for (NoSCSIInfo **const list : {managementList, diagnosticList}) {
        if (list != nullptr) {
            *list = nullptr;
        }
    }
    *status = kAbsent;
    return TRACED(0, kDetail, "_OUT_ status=[%d]", *status);
}

int TAVStorageNoManage(const NoSCSIInfo *list, const char *vendor, const char *model)
{
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
    TRACE(kDetail, "_IN_");
    if (list == nullptr) {
        TRACE(kFailure, "_OUT_ param(list) Failure!!");
        return;
    }
    while (*list != nullptr) {
        NoSCSIInfo *node = *list;
        *list = node->next;
        memfree(node);
    }
    TRACE(kDetail, "_OUT_");
}

// SPDX-License-Identifier: Apache-2.0
// The list of unmanaged devices: its nodes, and whether a device is on it.
#include "collect/inf/noscsi_inf.h"

#include "collect/base/flat_table.h"
#include "collect/base/node_list.h"
#include "collect/inf/data_path.h"
#include "collect/inf/inf_section.h"
#include "collect/inf/storage_inf.h"
#include "runtime/field_text.h"

#include <cerrno>
#include <sys/stat.h>

using namespace tavstrg;

namespace {

// One line of a section as both lists take it, traced in the words of its section.
struct SectionLine {
    char text[kMaxNoScsiSectionLine + 1] = {};
    char vendor[kMaxNoScsiKey + 1] = {};
    char model[kMaxNoScsiKey + 1] = {};
};
using TraceLine = void (*)(const SectionLine &line);

void traceManagement(const SectionLine &line)
{
    TRACE(kDetail, "linebuf=[%s],vendor=[%s],model=[%s]", line.text, line.vendor, line.model);
}

void traceDiagnostic(const SectionLine &line)
{
    TRACE(kDetail, "=linebuf=%s .vendor=%s,model=%s", line.text, line.vendor, line.model);
}

void addDevices(NoSCSIInfo **list, std::string_view section, TraceLine traceSection)
{
    if (list == nullptr) {
        return;
    }
    std::string_view text;
    while (takeWholeLine(section, text)) {
        if (text.size() > kMaxNoScsiSectionLine) {
            TRACE(kDetail, "line is  too long.");
            continue;
        }
        SectionLine line;
        copyText(line.text, text);
        const bool usable = ParseVendorandModel(line.text, line.vendor, kMaxNoScsiKey, line.model, kMaxNoScsiKey) == 0;
        traceSection(line);
        if (usable) {
            AddNoSCSITable(list, line.vendor, line.model);
        }
    }
}

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

struct Lists {
    NoSCSIInfo **management; // or null
    NoSCSIInfo **diagnostic; // or null
    int32_t *status;
};

// One reading of the file: 1, or 0 with a status; or kInfChanged with nothing in the lists. Traced as its caller's.
int readNoScsiInf(const char *path, const Lists &lists, bool mayBeReadAgain)
{
    struct stat info = {};
    if (::stat(path, &info) != 0) {
        const bool absent = errno == ENOENT;
        *lists.status = absent ? kInfUnusable : kInfError;
        return absent ? TRACED(0, kDetail, "_OUT_ file noscsi.inf not exist")
                      : TRACED(0, kFailure, "_OUT_ stat error.");
    }
    if (info.st_size > kMaxInfFileSize) {
        *lists.status = kInfUnusable; // deliberate: unlike "storage.inf" it then counts as absent
        return TRACED(0, kFailure, "_OUT_ noscsi.inf files size >64K.");
    }
    *lists.status = kInfError;
    const int size = static_cast<int>(info.st_size);
    ListHolder<char> management(memalloc(size + 1));
    if (management.entries == nullptr) {
        return TRACED(0, kFailure, "_OUT_ malloc Mpbuf failed.");
    }
    ListHolder<char> diagnostic(memalloc(size + 1));
    if (diagnostic.entries == nullptr) {
        management.release();
        return TRACED(0, kFailure, "_OUT_ malloc Dpbuf failed.");
    }
    const int result = getSectionFromInfFile(path, size, management.entries, diagnostic.entries, kGroupManagementPort,
                                             kGroupDiagnosticPort);
    if (mayBeReadAgain && isOtherFile(path, info)) {
        management.release();
        diagnostic.release();
        return kInfChanged;
    }
    if (result == 0) {
        addDevices(lists.management, management.entries, traceManagement);
        addDevices(lists.diagnostic, diagnostic.entries, traceDiagnostic);
    }
    management.release();
    diagnostic.release();
    if (result < 0) {
        return TRACED(0, kFailure, "_OUT_ getSectionFromInfFile() failed");
    }
    if (result > 0) {
        *lists.status = kInfUnusable;
        return TRACED(0, kDetail,
                      "_OUT_ getSectionFromInfFile() file not exist or invalid file content or file content nothing.");
    }
    *lists.status = 0;
    return TRACED(1, kDetail, "_OUT_ return 1");
}

} // namespace

int CreateNoSCSIInfoTable(NoSCSIInfo **managementList, NoSCSIInfo **diagnosticList, int32_t *status)
{
    const TraceScope scope;
    TRACE(kDetail, "_IN_");
    if (status == nullptr) {
        return TRACED(0, kFailure, "_OUT_ iFlagParse is NULL.");
    }
    *status = 0;
    if (managementList == nullptr && diagnosticList == nullptr) {
        *status = kInfNoList;
        return TRACED(0, kFailure, "_OUT_ both pNoSCSI_Tbl and pNoDiagnoTbl is NULL.");
    }
    for (NoSCSIInfo **const list : {managementList, diagnosticList}) {
        if (list != nullptr) {
            *list = nullptr;
        }
    }
    char path[kDataPathSize];
    makeDataPath(path, kNoScsiInf);
    TRACE(kDetail, "scsipath=%s", path);
    int result = kInfChanged;
    for (int left = kInfReadAttempts; result == kInfChanged; --left) {
        result = readNoScsiInf(path, {managementList, diagnosticList, status}, left > 1);
    }
    return result;
}

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

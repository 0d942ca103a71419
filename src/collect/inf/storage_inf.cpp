// SPDX-License-Identifier: Apache-2.0
#include "collect/inf/storage_inf.h"

#include "collect/base/flat_table.h"
#include "collect/base/node_list.h"
#include "collect/base/text_scan.h"
#include "collect/inf/data_path.h"
#include "collect/inf/inf_parse.h"
#include "collect/inf/inf_section.h"
#include "runtime/field_text.h"
#include "runtime/trace.h"

#include <cerrno>
#include <cstring>
#include <sys/stat.h>

using namespace tavstrg;

namespace {

constexpr size_t kMaxSectionLine = 1024; // characters without the line's end

// Statuses of GetInfoFromLine.
constexpr int32_t kLineNull = -3;
constexpr int32_t kLineRefused = -4;
constexpr int32_t kLineRepeatsHeader = -5;

void addLine(StorageInfo **list, std::string_view text)
{
    char line[kMaxSectionLine + 1];
    copyText(line, text);
    char name[kMaxDriverName + 1] = {};
    int32_t status = 0;
    if (GetInfoFromLine(line, name, &status) == 1) {
        AddStorageInfoTable(list, name);
    } else if (status == kLineRepeatsHeader) {
        TRACE(kDetail, "MP or DP appears more than 1 times");
    } else {
        TRACE(kDetail, "this line of storage.inf file is invalid");
    }
}

void addDrivers(StorageInfo **list, std::string_view section)
{
    if (list == nullptr) {
        return;
    }
    std::string_view line;
    while (takeLine(section, line)) {
        const std::string_view text = withoutLineEnd(line);
        if (text.size() > kMaxSectionLine) {
            TRACE(kDetail, "line is too long");
        } else {
            addLine(list, text);
        }
    }
}

struct Lists {
    StorageInfo **management; // or null
    StorageInfo **diagnostic; // or null
    int32_t *status;
};

// One reading of the file: 1, or 0 with a status; or kInfChanged with nothing in the lists. Traced as its caller's.
int readStorageInf(const char *path, const Lists &lists, bool mayBeReadAgain)
{
    struct stat info = {};
    if (::stat(path, &info) != 0) {
        const bool absent = errno == ENOENT;
        *lists.status = absent ? kInfUnusable : kInfError;
        return absent ? TRACED(0, kDetail, "_OUT_ file storage.inf not exist")
                      : TRACED(0, kFailure, "_OUT_ stat error");
    }
    if (info.st_size > kMaxInfFileSize) {
        *lists.status = kInfTooLarge;
        return TRACED(0, kFailure, "_OUT_ storage.inf files size >64K..");
    }
    const int size = static_cast<int>(info.st_size);
    ListHolder<char> management(memalloc(size + 1));
    ListHolder<char> diagnostic(memalloc(size + 1));
    if (management.entries == nullptr || diagnostic.entries == nullptr) {
        management.release();
        diagnostic.release();
        *lists.status = kInfError;
        return TRACED(0, kFailure, "_OUT_ MPbuf or DPbuf malloc error");
    }
    const int result = getSectionFromInfFile(path, size, management.entries, diagnostic.entries, kGroupManagementPort,
                                             kGroupDiagnosticPort);
    if (mayBeReadAgain && isOtherFile(path, info)) {
        management.release();
        diagnostic.release();
        return kInfChanged;
    }
    if (result == 0) {
        addDrivers(lists.management, management.entries);
        addDrivers(lists.diagnostic, diagnostic.entries);
    }
    management.release();
    diagnostic.release();
    if (result != 0) {
        *lists.status = result == 1 ? kInfUnusable : 0;
        return TRACED(0, result == 1 ? kDetail : kFailure, "_OUT_ getSectionFromInfFile() Rtn=[%d]", result);
    }
    return TRACED(1, kDetail, "_OUT_ return 1");
}

} // namespace

int CreatStorageInfoTable(StorageInfo **managementList, StorageInfo **diagnosticList, int32_t *status)
{
    const TraceScope scope;
    TRACE(kDetail, "_IN_");
    if (status == nullptr) {
        return TRACED(0, kFailure, "_OUT_ return 0");
    }
    *status = 0;
    if (managementList == nullptr && diagnosticList == nullptr) {
        *status = kInfNoList;
        return TRACED(0, kFailure, "_OUT_ both pSCSI_Tbl and pDiagnoTbl is NULL.");
    }
    for (StorageInfo **const list : {managementList, diagnosticList}) {
        if (list != nullptr) {
            *list = nullptr;
        }
    }
    char path[kDataPathSize];
    makeDataPath(path, kStorageInf);
    TRACE(kDetail, "strgFilepath=[%s]", path);
    int result = kInfChanged;
    for (int left = kInfReadAttempts; result == kInfChanged; --left) {
        result = readStorageInf(path, {managementList, diagnosticList, status}, left > 1);
    }
    return result;
}

int GetInfoFromLine(const char *line, char *name, int32_t *status)
{
    const TraceScope scope;
    TRACE(kDetail, "_IN_");
    if (status == nullptr) {
        return TRACED(0, kFailure, "_OUT_ param(status) Failure!!");
    }
    if (line == nullptr || name == nullptr) {
        *status = kLineNull;
        return TRACED(0, kFailure, "_OUT_ param is NULL");
    }
    std::string_view driver;
    const DriverLine kind = parseDriverLine(line, driver);
    *status = kLineRefused;
    switch (kind) {
    case DriverLine::tooLong:
        return TRACED(0, kDetail, "_OUT_ return 0.line is too long [%s]", line);
    case DriverLine::header:
        *status = kLineRepeatsHeader;
        return TRACED(0, kDetail, "_OUT_ GRP_MGMTPORT or GRP_DIAGNOPORT is invalid");
    case DriverLine::comment:
        return TRACED(0, kDetail, "_OUT_ p=# failure");
    case DriverLine::blank:
        return TRACED(0, kDetail, "_OUT_ line is null failure");
    case DriverLine::nameTooLong:
        return TRACED(0, kDetail, "_OUT_ driver name has more than 64 characters line:[%s]", line);
    case DriverLine::name:
        break;
    }
    std::memcpy(name, driver.data(), driver.size());
    name[driver.size()] = '\0';
    *status = 0;
    return TRACED(1, kDetail, "_OUT_ result=[%s]", name);
}

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

// SPDX-License-Identifier: Apache-2.0
#include "collect/inf/storage_inf.h"

#include "collect/inf/data_path.h"
#include "collect/inf/inf_parse.h"
#include "runtime/field_text.h"
#include "runtime/holders.h"
#include "runtime/memory.h"

#include <cerrno>
#include <sys/stat.h>

namespace {

constexpr size_t kMaxLine = 1024; // characters without the line's end

constexpr int32_t kStatusUnusable = 1;
constexpr int32_t kStatusNoList = -3;
constexpr int32_t kStatusTooLarge = -4;
constexpr int32_t kStatusError = -9;
constexpr int32_t kLineRepeatsHeader = -5; // of GetInfoFromLine

void addLine(StorageInfo **list, std::string_view text)
{
    char line[kMaxLine + 1];
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

void addSection(StorageInfo **list, std::string_view section)
{
    std::string_view line;
    while (takeLine(section, line)) {
        const std::string_view text = withoutLineEnd(line);
        if (text.size() > kMaxLine) {
            TRACE(kDetail, "line is too long");
        } else {
            addLine(list, text);
        }
    }
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
        *status = kStatusNoList;
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
    struct stat info = {};
    if (::stat(path, &info) != 0) {
        const bool absent = errno == ENOENT;
        *status = absent ? kStatusUnusable : kStatusError;
        return absent ? TRACED(0, kDetail, "_OUT_ file storage.inf not exist")
                      : TRACED(0, kFailure, "_OUT_ stat error");
    }
    if (info.st_size > kMaxInfFileSize) {
        *status = kStatusTooLarge;
        return TRACED(0, kFailure, "_OUT_ storage.inf files size >64K..");
    }
    const int size = static_cast<int>(info.st_size);
    const HeapBlock<char> management(memalloc(size + 1));
    const HeapBlock<char> diagnostic(memalloc(size + 1));
    if (!management || !diagnostic) {
        *status = kStatusError;
        return TRACED(0, kFailure, "_OUT_ MPbuf or DPbuf malloc error");
    }
    const int result = getSectionFromInfFile(path, size, management.get(), diagnostic.get(), kGroupManagementPort,
                                             kGroupDiagnosticPort);
    if (result != 0) {
        *status = result == 1 ? kStatusUnusable : 0;
        return TRACED(0, result == 1 ? kDetail : kFailure, "_OUT_ getSectionFromInfFile() Rtn=[%d]", result);
    }
    if (managementList != nullptr) {
        addSection(managementList, management.get());
    }
    if (diagnosticList != nullptr) {
        addSection(diagnosticList, diagnostic.get());
    }
    return TRACED(1, kDetail, "_OUT_ return 1");
}

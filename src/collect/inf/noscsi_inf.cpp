// SPDX-License-Identifier: Apache-2.0
#include "collect/inf/noscsi_inf.h"

#include "collect/inf/data_path.h"
#include "collect/inf/storage_inf.h"
#include "runtime/holders.h"
#include "runtime/memory.h"

#include <cerrno>
#include <sys/stat.h>

namespace {

constexpr int32_t kStatusUnusable = 1; // as if there were no file
constexpr int32_t kStatusNoList = -3;
constexpr int32_t kStatusError = -9;

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

void addSection(NoSCSIInfo **list, std::string_view section, TraceLine traceSection)
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
        *status = kStatusNoList;
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
    struct stat info = {};
    if (::stat(path, &info) != 0) {
        const bool absent = errno == ENOENT;
        *status = absent ? kStatusUnusable : kStatusError;
        return absent ? TRACED(0, kDetail, "_OUT_ file noscsi.inf not exist")
                      : TRACED(0, kFailure, "_OUT_ stat error.");
    }
    if (info.st_size > kMaxInfFileSize) {
        *status = kStatusUnusable; // deliberate: unlike "storage.inf" it then counts as absent
        return TRACED(0, kFailure, "_OUT_ noscsi.inf files size >64K.");
    }
    *status = kStatusError;
    const int size = static_cast<int>(info.st_size);
    const HeapBlock<char> management(memalloc(size + 1));
    if (!management) {
        return TRACED(0, kFailure, "_OUT_ malloc Mpbuf failed.");
    }
    const HeapBlock<char> diagnostic(memalloc(size + 1));
    if (!diagnostic) {
        return TRACED(0, kFailure, "_OUT_ malloc Dpbuf failed.");
    }
    const int result = getSectionFromInfFile(path, size, management.get(), diagnostic.get(), kGroupManagementPort,
                                             kGroupDiagnosticPort);
    if (result < 0) {
        return TRACED(0, kFailure, "_OUT_ getSectionFromInfFile() failed");
    }
    if (result > 0) {
        *status = kStatusUnusable;
        return TRACED(0, kDetail,
                      "_OUT_ getSectionFromInfFile() file not exist or invalid file content or file content nothing.");
    }
    addSection(managementList, management.get(), traceManagement);
    addSection(diagnosticList, diagnostic.get(), traceDiagnostic);
    *status = 0;
    return TRACED(1, kDetail, "_OUT_ return 1");
}

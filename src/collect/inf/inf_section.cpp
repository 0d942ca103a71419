// SPDX-License-Identifier: Apache-2.0
#include "collect/inf/inf_section.h"
#include "collect/base/flat_table.h"
#include "collect/base/text_file.h"
#include "collect/base/text_scan.h"
#include "collect/inf/inf_parse.h"

#include <cerrno>

using namespace tavstrg;

namespace {

// The buffer holds more than the text: a section is never longer than the file.
void copySection(char *buffer, std::string_view text)
{
    text.copy(buffer, text.size());
    buffer[text.size()] = '\0';
}

} // namespace

bool tavstrg::isOtherFile(const char *path, const struct stat &measured)
{
    struct stat now = {};
    return ::stat(path, &now) == 0 &&
           (now.st_dev != measured.st_dev || now.st_ino != measured.st_ino || now.st_size != measured.st_size ||
            now.st_mtim.tv_sec != measured.st_mtim.tv_sec || now.st_mtim.tv_nsec != measured.st_mtim.tv_nsec);
}

int getSectionFromInfFile(const char *path, int size, char *first, char *second, const char *firstHeader,
                          const char *secondHeader)
{
    const TraceScope scope;
    TRACE(kDetail, "_IN_");
    if (path == nullptr) {
        return TRACED(-1, kFailure, "_OUT_ param(path) Failure!!");
    }
    if (first == nullptr || second == nullptr) {
        return TRACED(-1, kFailure, "_OUT_ Mpbuf is NULL or Dpbuf is NULL.");
    }
    if (firstHeader == nullptr || secondHeader == nullptr) {
        return TRACED(-1, kFailure, "_OUT_ param(header) Failure!!");
    }
    const TextFile file(path);
    if (file.error() == ENOENT) {
        return TRACED(1, kDetail, "_OUT_ file [%s] is not exist.", path);
    }
    if (file.error() != 0) {
        return TRACED(-1, kFailure, "_OUT_ fopen [%s] error.", path);
    }
    ListHolder<char> text(size < 0 || size == INT32_MAX ? nullptr : memalloc(size + 1));
    if (text.entries == nullptr) {
        return TRACED(-1, kFailure, "_OUT_ malloc buf error.");
    }
    // No more than size bytes, even when the file has grown since it was measured.
    const ssize_t got = file.read({text.entries, static_cast<size_t>(size)});
    if (got < 0) {
        text.release();
        return TRACED(-1, kFailure, "_OUT_ fread [%s] error.", path);
    }
    InfSections sections;
    const std::string_view whole = untilNul({text.entries, static_cast<size_t>(got)});
    if (!splitInfSections(whole, firstHeader, secondHeader, sections)) {
        text.release();
        return TRACED(1, kDetail, "_OUT_ ret=[%d]", 1);
    }
    copySection(first, sections.first);
    copySection(second, sections.second);
    text.release();
    return TRACED(0, kDetail, "_OUT_ ret=[%d]", 0);
}

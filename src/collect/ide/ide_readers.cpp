// SPDX-License-Identifier: Apache-2.0
#include "collect/ide/ide_readers.h"

#include "collect/base/text_file.h"
#include "collect/ide/ide_parse.h"
#include "runtime/field_text.h"
#include "runtime/trace.h"

#include <climits>
#include <unistd.h>

using namespace tavstrg;

namespace {

constexpr size_t kMaxText = 1023; // bytes of a file that are read

bool areThere(const char *path, const void *out)
{
    if (path == nullptr) {
        return TRACED(false, kFailure, "_OUT_ param(path) Failure!!");
    }
    if (out == nullptr) {
        return TRACED(false, kFailure, "_OUT_ param(out) Failure!!");
    }
    return true;
}

// The first line of a file, traced under the name of the reader; false when it cannot be read.
bool readLineOf(const char *path, char (&buffer)[kMaxText], std::string_view &text)
{
    if (readFirstLine(path, buffer, text) != ReadResult::done) {
        return TRACED(false, kFailure, "_OUT_ fopen failed. [%s]", path);
    }
    return true;
}

int readText(const char *path, char *out)
{
    char buffer[kMaxText];
    std::string_view text;
    if (!areThere(path, out) || !readLineOf(path, buffer, text)) {
        return -1;
    }
    char value[kIDETextSize];
    copyText(value, parseIDELine(text));
    std::memcpy(out, value, sizeof value);
    return TRACED(0, kDetail, "_OUT_ (0) result=[%s]", out);
}

template <class Number> int readNumber(const char *path, Number *out, bool (*parse)(std::string_view, Number &))
{
    char buffer[kMaxText];
    std::string_view text;
    if (!areThere(path, out) || !readLineOf(path, buffer, text)) {
        return -1;
    }
    Number value = 0;
    if (!parse(text, value)) {
        return TRACED(-1, kFailure, "_OUT_ (-1)");
    }
    *out = value;
    return TRACED(0, kDetail, "_OUT_ (0) result=[%lld]", static_cast<long long>(value));
}

} // namespace

int32_t getIDEControllerChannel(const char *path)
{
    const TraceScope scope;
    TRACE(kDetail, "_IN_");
    char buffer[kMaxText];
    std::string_view text;
    const bool read = path != nullptr && readFirstLine(path, buffer, text) == ReadResult::done;
    const int32_t channel = read ? parseIDEChannel(text) : kUnknownChannel;
    return channel == kUnknownChannel ? TRACED(channel, kDetail, "_OUT_ MIB_UNKNOWN_WORD")
                                      : TRACED(channel, kDetail, "_OUT_ ret=[%d]", channel);
}

int getIDEControllerModel(const char *path, char *model)
{
    const TraceScope scope;
    TRACE(kDetail, "_IN_");
    return readText(path, model);
}

int getIDEControllerMate(const char *path, char *mate)
{
    const TraceScope scope;
    TRACE(kDetail, "_IN_");
    return readText(path, mate);
}

int getIDEDeviceNumberofController(const char *path, int32_t *number)
{
    const TraceScope scope;
    TRACE(kDetail, "_IN_");
    if (!areThere(path, number)) {
        return -1;
    }
    const DirListing entries(path);
    if (entries.count() < 0) {
        return TRACED(-1, kFailure, "_OUT_ scandir failed. [%s] errno=[%d]", path, entries.error());
    }
    int32_t found = 0;
    for (int i = 0; i < entries.count(); ++i) {
        const bool device = std::string_view(entries.name(i)).starts_with("hd");
        found += device && isDirectory(path, entries.name(i)) ? 1 : 0;
    }
    *number = found;
    return TRACED(0, kDetail, "_OUT_ (0) result=[%d]", found);
}

int getIDEDeviceControllerName(const char *path, char *name)
{
    const TraceScope scope;
    TRACE(kDetail, "_IN_");
    if (!areThere(path, name)) {
        return -1;
    }
    char target[PATH_MAX];
    const ssize_t length = ::readlink(path, target, sizeof target);
    if (length < 0) {
        return TRACED(-1, kFailure, "_OUT_ readlink failed. [%s]", path);
    }
    std::string_view controller;
    if (!parseIDELink({target, static_cast<size_t>(length)}, controller)) {
        return TRACED(-1, kFailure, "_OUT_ (-1)");
    }
    char value[kIDENameSize];
    copyText(value, controller);
    std::memcpy(name, value, sizeof value);
    return TRACED(0, kDetail, "_OUT_ (0) result=[%s]", name);
}

int getIDEDeviceMedia(const char *path, char *media)
{
    const TraceScope scope;
    TRACE(kDetail, "_IN_");
    return readText(path, media);
}

int getIDEDeviceModel(const char *path, char *model)
{
    const TraceScope scope;
    TRACE(kDetail, "_IN_");
    return readText(path, model);
}

int getIDEDeviceDriver(const char *path, char *driver, char *version)
{
    const TraceScope scope;
    TRACE(kDetail, "_IN_");
    if (path == nullptr || driver == nullptr || version == nullptr) {
        return TRACED(-1, kFailure, "_OUT_ param is NULL");
    }
    char buffer[kMaxText];
    std::string_view text;
    if (!readLineOf(path, buffer, text)) {
        return -1;
    }
    const IDEDriver found = parseIDEDriver(text.substr(0, text.find('\n')));
    char name[kIDETextSize];
    char number[kIDETextSize];
    copyText(name, found.name);
    copyText(number, found.version);
    std::memcpy(driver, name, sizeof name);
    std::memcpy(version, number, sizeof number);
    return TRACED(0, kDetail, "_OUT_ (0) driver=[%s] version=[%s]", driver, version);
}

int getIDEDeviceGeometry(const char *path, int32_t *cylinders, int32_t *heads, int32_t *sectors)
{
    const TraceScope scope;
    TRACE(kDetail, "_IN_");
    if (path == nullptr || cylinders == nullptr || heads == nullptr || sectors == nullptr) {
        return TRACED(-1, kFailure, "_OUT_ param is NULL");
    }
    char buffer[kMaxText];
    std::string_view text;
    if (readBeginning(path, buffer, text) != ReadResult::done) {
        return TRACED(-1, kFailure, "_OUT_ fopen failed. [%s]", path);
    }
    IDEGeometry geometry = {};
    if (!parseIDEGeometry(text, geometry)) {
        return TRACED(-1, kFailure, "_OUT_ (-1)");
    }
    *cylinders = geometry.cylinders;
    *heads = geometry.heads;
    *sectors = geometry.sectors;
    return TRACED(0, kDetail, "_OUT_ (0) result=[%d/%d/%d]", *cylinders, *heads, *sectors);
}

int getIDEDeviceCapacity(const char *path, int64_t *capacity)
{
    const TraceScope scope;
    TRACE(kDetail, "_IN_");
    return readNumber(path, capacity, parseIDECapacity);
}

int getIDEDeviceCache(const char *path, int32_t *cache)
{
    const TraceScope scope;
    TRACE(kDetail, "_IN_");
    return readNumber(path, cache, parseIDECache);
}

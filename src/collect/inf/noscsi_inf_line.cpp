// SPDX-License-Identifier: Apache-2.0
// One line of "noscsi.inf", and its keys.

#include "collect/inf/noscsi_inf.h"
#include "devcmd/trim.h"
#include "runtime/field_text.h"
#include "runtime/trace.h"

#include <cstring>

using namespace tavstrg;

namespace {

// A size that is not positive is that of an empty text.
size_t charactersOf(int size)
{
    return size > 0 ? static_cast<size_t>(size) : 0;
}

// The outputs of ParseVendorandModel and GetNoSCSIInfo; traces under the name of its caller.
bool haveOutputs(const char *vendor, const char *model)
{
    if (vendor == nullptr) {
        return TRACED(false, kFailure, "_OUT_ param(vendor) Failure!!");
    }
    if (model == nullptr) {
        return TRACED(false, kFailure, "_OUT_ param(model) Failure!!");
    }
    return true;
}

} // namespace

int FindString(const char *text, const char *key, char *value, int size, const char *stop)
{
    const TraceScope scope;
    TRACE(kDetail, "_IN_");
    if (text == nullptr) {
        return TRACED(0, kFailure, "_OUT_ buf is NULL");
    }
    if (key == nullptr) {
        return TRACED(0, kFailure, "_OUT_ name is NULL");
    }
    if (value == nullptr) {
        return TRACED(0, kFailure, "_OUT_ value is NULL");
    }
    if (key[0] == '\0') {
        return TRACED(0, kFailure, "_OUT_ strlen(name)=[%d]", 0);
    }
    std::string_view raw;
    switch (findRawValue(text, {key, charactersOf(size), stop == nullptr ? "" : stop}, raw)) {
    case KeyValue::noKey:
        return TRACED(0, kDetail, "_OUT_ cann't find [%s] in [%s].", key, text);
    case KeyValue::noColon:
        return TRACED(0, kDetail, "_OUT_ b_buf format err.");
    case KeyValue::tooLong:
    case KeyValue::found:
        break;
    }
    char found[kDelSpaceMax + 1];
    copyText(found, raw);
    del_space(found);
    const size_t length = fieldText(found).size();
    if (length > charactersOf(size)) {
        return TRACED(0, kDetail, "_OUT_ v_len[%d] < strlen(h_tmp)[%d]", size, static_cast<int>(length));
    }
    std::memcpy(value, found, length + 1);
    return TRACED(1, kDetail, "_OUT_ value=[%s]", value);
}

int GetNoSCSIInfo(const char *line, char *vendor, int vendorSize, char *model, int modelSize)
{
    const TraceScope scope;
    TRACE(kDetail, "_IN_");
    if (line == nullptr) {
        return TRACED(-1, kFailure, "_OUT_ param(line) Failure!!");
    }
    if (!haveOutputs(vendor, model)) {
        return -1;
    }
    if (FindString(line, kVendorKey.data(), vendor, vendorSize, kModelKey.data()) == 0 ||
        FindString(line, kModelKey.data(), model, modelSize, nullptr) == 0) {
        return TRACED(-1, kDetail, "_OUT_ FindString() failed.");
    }
    return TRACED(0, kDetail, "_OUT_ ret=[%d]", 0);
}

int ParseVendorandModel(const char *line, char *vendor, int vendorSize, char *model, int modelSize)
{
    const TraceScope scope;
    TRACE(kDetail, "_IN_");
    if (line == nullptr) {
        return TRACED(-1, kFailure, "_OUT_ line is null");
    }
    if (!haveOutputs(vendor, model)) {
        return -1;
    }
    const NoScsiLine kind = parseNoScsiLine(line, charactersOf(vendorSize), charactersOf(modelSize)).kind;
    switch (kind) {
    case NoScsiLine::empty:
        return TRACED(-1, kDetail, "_OUT_ null line");
    case NoScsiLine::tooLong:
        return TRACED(-1, kDetail, "_OUT_ line is  too long. line=[%s]", line);
    case NoScsiLine::header:
        return TRACED(-1, kDetail, "_OUT_ line invalid include Key: GRP_MGMTPORT or GRP_DIAGNOPORT.line:[%s]", line);
    case NoScsiLine::blank:
    case NoScsiLine::comment:
    case NoScsiLine::badVendor:
    case NoScsiLine::badModel:
    case NoScsiLine::bothEmpty:
    case NoScsiLine::entry:
        break;
    }
    char text[kMaxNoScsiLine + 1];
    copyText(text, std::string_view(line));
    del_space(text);
    if (kind == NoScsiLine::blank) {
        return TRACED(-1, kDetail, "_OUT_ blank line or tab line.");
    }
    if (kind == NoScsiLine::comment) {
        return TRACED(-1, kDetail, "_OUT_ This line is commentary.");
    }
    if (GetNoSCSIInfo(text, vendor, vendorSize, model, modelSize) < 0) {
        return TRACED(-1, kDetail, "_OUT_ invalid line:[%s]", text);
    }
    if (kind == NoScsiLine::bothEmpty) {
        return TRACED(-1, kDetail, "_OUT_ vendor and model is null .line:[%s]", text);
    }
    return TRACED(0, kDetail, "_OUT_ ret=[%d]", 0);
}

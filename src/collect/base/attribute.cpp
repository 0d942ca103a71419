// SPDX-License-Identifier: Apache-2.0
#include "collect/base/attribute.h"
#include "collect/base/text_file.h"
#include "collect/base/text_scan.h"

#include "runtime/field_text.h"
#include "runtime/trace.h"

#include <cstring>

using namespace tavstrg;

namespace {

constexpr int32_t kAttributeAbsent = 1;
constexpr int32_t kAttributeNotOpened = -1;
constexpr int32_t kAttributeNotRead = -2;
constexpr int32_t kAttributeNull = -3;

// The end of GetInfFromFile, in its trace scope: the value into out, or the status of the failure.
int reportAttribute(const AttributeText &text, const char *path, int32_t *status, char *out)
{
    switch (text.result) {
    case ReadResult::absent:
        *status = kAttributeAbsent;
        return TRACED(-1, kDetail, "_OUT_ [%s] is not exist.", path);
    case ReadResult::notOpened:
        *status = kAttributeNotOpened;
        return TRACED(-1, kFailure, "_OUT_ open failed. [%s]", path);
    case ReadResult::notRead:
        *status = kAttributeNotRead;
        return TRACED(-1, kFailure, "_OUT_ read failed. [%s]", path);
    case ReadResult::done:
        break;
    }
    std::memcpy(out, text.value, ::strnlen(text.value, sizeof text.value));
    *status = 0;
    return TRACED(0, kDetail, "_OUT_ (0) result=[%s]", text.value);
}

} // namespace

int GetInfFromFile(int32_t *status, const char *path, char *out)
{
    const TraceScope scope;
    TRACE(kDetail, "_IN_");
    if (status == nullptr) {
        return TRACED(-1, kFailure, "_OUT_ param(status) Failure!!");
    }
    *status = kAttributeNull;
    if (path == nullptr) {
        return TRACED(-1, kFailure, "_OUT_ param(path) Failure!!");
    }
    if (out == nullptr) {
        return TRACED(-1, kFailure, "_OUT_ param(out) Failure!!");
    }
    return reportAttribute(readAttributeText(path), path, status, out);
}

AttributeText tavstrg::readAttributeText(const char *path)
{
    char line[kMaxAttributeLine];
    std::string_view text;
    AttributeText attribute = {};
    attribute.result = readFirstLine(path, line, text);
    copyText(attribute.value, attributeValue(text));
    return attribute;
}

int tavstrg::retellAttribute(const AttributeText &text, const char *path, int32_t *status, char *out)
{
    const TraceScope scope("GetInfFromFile");
    TRACE(kDetail, "_IN_");
    return reportAttribute(text, path, status, out);
}

std::string_view tavstrg::attributeValue(std::string_view text)
{
    std::string_view value = withoutLeading(untilNul(text), " ");
    const size_t newline = value.find('\n');
    if (newline != std::string_view::npos) {
        value = withoutTrailing(value.substr(0, newline), " ");
    }
    return value.substr(0, kAttributeSize - 1);
}

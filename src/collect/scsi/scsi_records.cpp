// SPDX-License-Identifier: Apache-2.0
#include "collect/scsi/scsi_records.h"

#include "collect/base/attribute.h"
#include "collect/base/text_scan.h"
#include "collect/scsi/scsi_parse.h"
#include "runtime/field_text.h"
#include "runtime/trace.h"

#include <cstring>

using namespace tavstrg;

namespace {

constexpr std::string_view kNoDevices = "Attached devices: none";

} // namespace

int FindName(const char *line, const char *key, char *out)
{
    const TraceScope scope;
    TRACE(kDetail, "_IN_");
    if (line == nullptr) {
        return TRACED(-1, kFailure, "_OUT_ param(line) Failure!!");
    }
    if (key == nullptr) {
        return TRACED(-1, kFailure, "_OUT_ param(key) Failure!!");
    }
    if (out == nullptr) {
        return TRACED(-1, kFailure, "_OUT_ param(out) Failure!!");
    }
    std::string_view value;
    if (!namedValue(line, key, value)) {
        return TRACED(-1, kDetail, "_OUT_ ret=[%d]", -1);
    }
    char text[kAttributeSize];
    copyText(text, value);
    std::memcpy(out, text, sizeof text);
    return TRACED(0, kDetail, "_OUT_ (0) result=[%s]", out);
}

ScsiRecordReader::Step ScsiRecordReader::takeHost(std::string_view line)
{
    if (line.find(kNoDevices) != std::string_view::npos) {
        return Step::end;
    }
    ScsiAddress address = {};
    if (line.find("Host") != std::string_view::npos && parseProcHostLine(line, address)) {
        record_ = {};
        record_.host = address.host;
        record_.channel = address.channel;
        record_.id = address.id;
        record_.lun = address.lun;
        expected_ = Expected::identity;
    }
    return Step::more;
}

// A key that is not there leaves its text empty: the record counts all the same.
ScsiRecordReader::Step ScsiRecordReader::take(std::string_view text)
{
    char line[1024];
    copyText(line, untilNul(text));
    switch (expected_) {
    case Expected::host:
        return takeHost(line);
    case Expected::identity:
        FindName(line, "Vendor", record_.vendor);
        FindName(line, "Model", record_.model);
        FindName(line, "Rev", record_.scsiRev);
        expected_ = Expected::type;
        return Step::more;
    case Expected::type:
        FindName(line, "Type", record_.type);
        FindName(line, "revision", record_.ansiRev);
        expected_ = Expected::host;
        return Step::complete;
    }
    return Step::end;
}

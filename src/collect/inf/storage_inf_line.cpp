// SPDX-License-Identifier: Apache-2.0
#include "collect/inf/inf_parse.h"

#include "runtime/trace.h"

#include <cstring>

namespace {

constexpr int32_t kStatusNull = -3;
constexpr int32_t kStatusRefused = -4;
constexpr int32_t kStatusHeader = -5;

} // namespace

int GetInfoFromLine(const char *line, char *name, int32_t *status)
{
    const TraceScope scope;
    TRACE(kDetail, "_IN_");
    if (status == nullptr) {
        return TRACED(0, kFailure, "_OUT_ param(status) Failure!!");
    }
    if (line == nullptr || name == nullptr) {
        *status = kStatusNull;
        return TRACED(0, kFailure, "_OUT_ param is NULL");
    }
    std::string_view driver;
    const DriverLine kind = parseDriverLine(line, driver);
    *status = kStatusRefused;
    switch (kind) {
    case DriverLine::tooLong:
        return TRACED(0, kDetail, "_OUT_ return 0.line is too long [%s]", line);
    case DriverLine::header:
        *status = kStatusHeader;
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

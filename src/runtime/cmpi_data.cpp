// SPDX-License-Identifier: Apache-2.0
#include "runtime/cmpi_data.h"

#include <cstdarg>
#include <cstdio>

using namespace tavstrg;

Refusal tavstrg::refusal(CMPIrc code, const char *format, ...)
{
    Refusal refused = {code, ""};
    va_list args;
    va_start(args, format);
    std::vsnprintf(refused.text, sizeof refused.text, format, args);
    va_end(args);
    return refused;
}

CMPIStatus tavstrg::statusOf(const CInfo *cInfo, const Outcome &outcome)
{
    if (!outcome) {
        return {CMPI_RC_OK, nullptr};
    }
    if (outcome->text[0] == '\0') {
        return {outcome->code, nullptr};
    }
    return {outcome->code, cInfo->broker->eft->newString(cInfo->broker, outcome->text, nullptr)};
}

// SPDX-License-Identifier: Apache-2.0
#include "devcmd/trim.h"

#include "runtime/trace.h"

#include <cstring>

using namespace tavstrg;

std::string_view tavstrg::withoutSpace(std::string_view text)
{
    const size_t first = text.find_first_not_of(" \n\t");
    const size_t last = text.find_last_not_of(" \n\r\t");
    // Carriage returns alone are left of leading blanks but fall to the trailing ones.
    if (first == std::string_view::npos || last == std::string_view::npos || last < first) {
        return {};
    }
    return text.substr(first, last - first + 1);
}

void del_space(char *text)
{
    const TraceScope scope;
    TRACE(kDetail, "_IN_");
    if (text == nullptr) {
        TRACE(kFailure, "_OUT_ param(text) Failure!!");
        return;
    }
    const std::string_view kept = withoutSpace({text, ::strnlen(text, kDelSpaceMax)});
    const size_t length = kept.size();
    if (length > 0) {
        std::memmove(text, kept.data(), length);
    }
    text[length] = '\0';
    TRACE(kDetail, "_OUT_");
}

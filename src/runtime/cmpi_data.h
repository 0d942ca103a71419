// SPDX-License-Identifier: Apache-2.0
// Data that the broker's get calls hand out.
#pragma once

#include "runtime/mode.h"

#include <cmpift.h>

namespace tavstrg {

// The text object in the data, which the broker made for this one call and the provider releases; null when the data
// has none. Only for data of a call that succeeded.
inline CMPIString *ownedText(const CMPIData &data)
{
    return data.type == CMPI_string ? data.value.string : nullptr;
}

// The characters of a text whose handle is not null; they live as long as it does. A text's handle is the characters
// themselves; the macro that says so has another meaning in later header sets.
inline const char *textOf(const CMPIString *text)
{
    return static_cast<const char *>(text->hdl);
}

// Whether the value stands in the data itself: a number or a truth value, there and not NULL.
inline bool isPlainValue(const CMPIData &data)
{
    constexpr int unusable = CMPI_nullValue | CMPI_notFound | CMPI_badValue;
    return (data.state & unusable) == 0 && data.type != CMPI_null && (data.type & (CMPI_ENC | CMPI_ARRAY)) == 0;
}

// A status with a message, which the broker makes and keeps; without one when the broker cannot make it.
CMPIStatus statusWithChars(const CInfo *cInfo, CMPIrc rc, const char *message);

} // namespace tavstrg

// SPDX-License-Identifier: Apache-2.0
// Data that the broker's get calls return, and the outcome of a request as a value.
#pragma once

#include "runtime/mode.h"

#include <cmpift.h>
#include <optional>

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

constexpr int kUnusable = CMPI_nullValue | CMPI_notFound | CMPI_badValue; // states of data without a value

// Whether the value is in the data itself: a number or a truth value, present and not NULL.
inline bool isPlainValue(const CMPIData &data)
{
    return (data.state & kUnusable) == 0 && data.type != CMPI_null && (data.type & (CMPI_ENC | CMPI_ARRAY)) == 0;
}

// Why a request was not fulfilled.
struct Refusal {
    CMPIrc code;
    char text[64]; // message of the status; empty: the status has none
};

// What became of a request: nothing when it was fulfilled.
using Outcome = std::optional<Refusal>;

// A refusal with a message, which is cut to what fits.
__attribute__((format(printf, 2, 3))) Refusal refusal(CMPIrc code, const char *format, ...);

// The status for the broker. Its message is made by the broker, which keeps it; the status has no message where the
// broker cannot make one.
CMPIStatus statusOf(const CInfo *cInfo, const Outcome &outcome);

} // namespace tavstrg

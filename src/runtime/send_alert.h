// SPDX-License-Identifier: Apache-2.0
// The one way to the agent's alert library.
#pragma once

#include <cstdint>
// Packs an alert into the library's record and hands it over. sourceName is not null, eventType not negative, method 1
// to 3, numOfStrings not negative; strings stays the caller's. 0 when the library accepted it; -1 when it did not, a
// parameter was refused (traced), or the library is not loaded.
int TAVSendIndication(const char *sourceName, uint32_t eventId, int32_t eventType, int32_t method, int32_t numOfStrings,
                      const char **strings);

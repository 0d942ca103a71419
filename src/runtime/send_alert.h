// SPDX-License-Identifier: Apache-2.0
// The one way to the agent's alert library.
#pragma once

#include <cstdint>

// Packs an alert into the library's record and sends it. sourceName must not be null, eventType and numOfStrings not
// negative, method 1 to 3; the caller keeps strings. Returns 0 if the library accepted it; -1 if it did not, if a
// parameter is refused (traced), or if the library is not loaded. The interface gives the six parameters.
int TAVSendIndication(const char *sourceName, uint32_t eventId, int32_t eventType, int32_t method, int32_t numOfStrings,
                      const char **strings);

// SPDX-License-Identifier: Apache-2.0
// Status of an entry point or handler.
#pragma once

#include "runtime/mode.h"

// A status with a message, which the broker makes and keeps; without one when the broker cannot make it.
CMPIStatus statusWithChars(const CInfo *cInfo, CMPIrc rc, const char *message);

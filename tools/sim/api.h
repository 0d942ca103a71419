// SPDX-License-Identifier: Apache-2.0
// sim.h as the library includes it: its declarations are exported, all others are hidden.
#pragma once

#pragma GCC visibility push(default)
#include "sim/sim.h"
#pragma GCC visibility pop

// SPDX-License-Identifier: Apache-2.0
// sim.h as the library itself includes it: what it declares is seen from outside, all else is not.
#pragma once

#pragma GCC visibility push(default)
#include "sim/sim.h"
#pragma GCC visibility pop

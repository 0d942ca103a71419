// SPDX-License-Identifier: Apache-2.0
// Tests that act in the middle of the product's work: at one of its calls, and while it sleeps.
#pragma once

#include "sim/api.h"

namespace sim {

// The product is about to make a call of this kind: what a test wants done at it is done.
void callComes(Call kind);

// Whether the product's sleeps are held.
bool holdsSleeps();
// Sleeps until it is woken; can be cancelled, like any sleep.
void sleepUntilWoken();

} // namespace sim

// SPDX-License-Identifier: Apache-2.0
// Lets a test act in the middle of the product's work: at one of its calls, and while it sleeps.
#pragma once

#include "sim/api.h"

namespace sim {

// To be called before each call of the product. Runs the act of a test, if one is armed for this call.
void runActBefore(Call kind);

// Whether the product's sleeps last until they are woken.
bool holdsSleeps();
// Sleeps until woken. A cancellation point, like any sleep.
void sleepUntilWoken();

} // namespace sim

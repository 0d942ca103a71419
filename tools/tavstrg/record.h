// SPDX-License-Identifier: Apache-2.0
// "tavstrg record": this machine as a description for the simulator.
#pragma once

#include "tavstrg/arguments.h"
#include "tavstrg/commands.h"

namespace tool {

// Asks the disks as "tavstrg disks" does, and nothing else. The description is the outcome's output; what is missing
// from it is said in its error, and in the description's comment. Throws Failure if memory is short.
Outcome recordMachine(const Arguments &arguments);

} // namespace tool

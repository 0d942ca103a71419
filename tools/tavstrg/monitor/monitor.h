// SPDX-License-Identifier: Apache-2.0
// "tavstrg monitor", and the command by which the service reaches the agent.
#pragma once

#include "tavstrg/arguments.h"
#include "tavstrg/commands.h"
#include "tavstrg/surroundings.h"

namespace tool::monitor {

// Runs the service until a signal ends it, one pass of it, or the check of its configuration. SIGHUP, SIGINT and
// SIGTERM are blocked. Throws Failure.
Outcome run(const Arguments &arguments, Surroundings &surroundings);

// Sends the event that the variables TAVSTRG_... describe through the agent's alert library. Throws Failure if the
// library is missing or refuses it.
Outcome sendEvent();

} // namespace tool::monitor

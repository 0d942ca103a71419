// SPDX-License-Identifier: Apache-2.0
// "tavstrg monitor".
#pragma once

#include "tavstrg/arguments.h"
#include "tavstrg/commands.h"
#include "tavstrg/surroundings.h"

namespace tool::monitor {

// Runs the service until a signal ends it, one pass of it, or the check of its configuration; or sends the event that
// the variables TAVSTRG_... describe through the agent's alert library, as the service lets a process of its own do.
// SIGHUP, SIGINT and SIGTERM are blocked. Throws Failure.
Outcome run(const Arguments &arguments, Surroundings &surroundings);

} // namespace tool::monitor

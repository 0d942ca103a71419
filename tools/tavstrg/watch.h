// SPDX-License-Identifier: Apache-2.0
// tavstrg watch: the monitoring thread at work, its alerts printed as they come.
#pragma once

#include "tavstrg/commands.h"
#include "tavstrg/surroundings.h"

namespace tool {

// Runs until SIGINT, SIGTERM or SIGHUP, which end it well, or until standard output cannot be written any more, which
// is a failure. Alerts go to standard output one by one, each in one write; what else is to be said goes to standard
// error. The thread is started and stopped through its methods; whatever happens, it is stopped before this returns.
// Throws Failure.
Outcome watch(const Arguments &arguments, const TextStyle &style, Surroundings &surroundings);

} // namespace tool

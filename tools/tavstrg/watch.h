// SPDX-License-Identifier: Apache-2.0
// tavstrg watch: runs the monitoring thread and prints its alerts as they come.
#pragma once

#include "tavstrg/commands.h"
#include "tavstrg/surroundings.h"

namespace tool {

// Runs until SIGINT, SIGTERM or SIGHUP, which is success, or until standard output cannot be written any more, which is
// a failure. Alerts go to standard output one by one, each in one write; notes go to standard error. The thread is
// started and stopped through its methods; on every path it is stopped before this returns.
// Throws Failure.
Outcome watch(const Arguments &arguments, const TextStyle &style, Surroundings &surroundings);

} // namespace tool

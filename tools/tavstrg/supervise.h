// SPDX-License-Identifier: Apache-2.0
// A command at work in a process of its own. A disk that hangs keeps the process that asks it from ending, whatever
// signal it gets: so the process that the user started only waits for the one that asks, and can end at any time.
#pragma once

#include "tavstrg/commands.h"

#include <chrono>
#include <functional>

namespace tool {

// What a signal that ends the tool means for the work.
enum class Ending {
    atOnce,  // it is killed: it only reads, in files of its own
    graceful // it gets the signal and kGrace to finish, and is killed then
};
constexpr std::chrono::milliseconds kGrace{700};

// Runs "work" in a child process and returns its outcome. SIGHUP, SIGINT and SIGTERM are blocked in both processes.
// After such a signal the outcome is the work's own, if it finishes in time; else it is empty. The signal stays
// pending, so the caller ends by it when it unblocks the signals, unless the work consumed it: then its outcome is good
// and the signal is discarded. Segments that the child leaves are removed. showProgress: on a terminal, standard error
// says that the disks are being asked.
Outcome supervised(const std::function<Outcome()> &work, Ending ending, bool showProgress);

} // namespace tool

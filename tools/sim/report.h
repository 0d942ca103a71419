// SPDX-License-Identifier: Apache-2.0
// What the simulated machine has cost a preloaded process, told at its end: to be taken off where programs are
// measured.
#pragma once

namespace sim {

// Before the machine is made, in a process with TAVSIM_REPORT set: from here on its CPU time is measured, and no call
// is counted or noted as the product's, which costs what other programs do not pay.
void beginReport();
// When the machine is made: memory that it holds is known, and the process's peak counts anew.
void machineIsReported();
// Appends one line of JSON to the file that TAVSIM_REPORT names.
void endReport();

} // namespace sim

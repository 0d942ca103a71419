// SPDX-License-Identifier: Apache-2.0
// Reports what the simulated machine cost a preloaded process, so that measurements of the program can subtract it.
#pragma once

namespace sim {

// To be called before the machine is made. With TAVSIM_REPORT set, starts to measure its CPU time and counts no calls
// as the product's, because counting has a cost of its own.
void beginReport();
// To be called when the machine was made. Records its memory and resets the process's peak.
void machineIsReported();
// Appends one line of JSON to the file that TAVSIM_REPORT names.
void endReport();

} // namespace sim

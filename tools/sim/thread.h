// SPDX-License-Identifier: Apache-2.0
// Per-thread state of the simulated machine.
#pragma once

namespace sim {

// In the static TLS block: a dynamic one would be allocated by malloc, which is interposed.
struct ThreadState {
    unsigned inside;       // the thread works for the simulated machine: interposed functions only call the real ones
    unsigned measured;     // nesting of OwnTime
    double startedSeconds; // CPU time of the thread when the outermost OwnTime began
    double ownSeconds;     // CPU time spent in the simulated machine so far
};
extern thread_local ThreadState thisThread __attribute__((tls_model("initial-exec")));

// While it lives, the thread's calls are the simulated machine's own.
struct Inside {
    Inside() { ++thisThread.inside; }
    ~Inside() { --thisThread.inside; }
    Inside(const Inside &) = delete;
    Inside &operator=(const Inside &) = delete;
};

// While it lives, the thread's CPU time counts as the simulated machine's own, if it is measured.
struct OwnTime {
    OwnTime();
    ~OwnTime();
    OwnTime(const OwnTime &) = delete;
    OwnTime &operator=(const OwnTime &) = delete;

private:
    bool counted_;
};

} // namespace sim

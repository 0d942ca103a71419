// SPDX-License-Identifier: Apache-2.0
// What the simulated machine keeps per thread.
#pragma once

namespace sim {

// In the static TLS block: a dynamic one would be allocated by malloc, which is interposed itself.
struct ThreadState {
    unsigned inside;       // the thread works for the simulated machine: every interposed name passes through
    unsigned measured;     // nesting of OwnTime
    double startedSeconds; // CPU time of the thread when the outermost OwnTime began
    double ownSeconds;     // CPU time spent in the simulated machine so far
};
extern thread_local ThreadState thisThread __attribute__((tls_model("initial-exec")));

// Within its life the thread's calls are the simulated machine's own.
struct Inside {
    Inside() { ++thisThread.inside; }
    ~Inside() { --thisThread.inside; }
    Inside(const Inside &) = delete;
    Inside &operator=(const Inside &) = delete;
};

// Within its life the thread's CPU time counts as the simulated machine's own, if it is measured at all.
struct OwnTime {
    OwnTime();
    ~OwnTime();
    OwnTime(const OwnTime &) = delete;
    OwnTime &operator=(const OwnTime &) = delete;

private:
    bool counted_;
};

} // namespace sim

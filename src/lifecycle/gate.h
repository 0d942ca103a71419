// SPDX-License-Identifier: Apache-2.0
// Waiting for an initialisation of the store that another thread runs.
#pragma once

#include "runtime/pause.h"
#include "store/store.h"

#include <unistd.h>

namespace tavstrg {

constexpr int kInitWaits = 30;            // about three seconds in all
constexpr useconds_t kInitPause = 100000; // 100 ms

// Waits until no initialisation runs or kInitWaits waits were made, including the waits of earlier calls. after is what
// counts them: TurnRules::waitsAfter for a request. Returns the waits made.
inline int waitWhileInitialising(
    int waits, int (*after)(int) = [](int made) { return made + 1; })
{
    while (gst_first == kBuilding && waits < kInitWaits) {
        pauseFor(kInitPause);
        waits = after(waits);
    }
    return waits;
}

// Frees what a failed initialisation left, before another one starts and before the provider is unloaded. Segments are
// removed without a trace.
void releaseEarlierBuild();

} // namespace tavstrg

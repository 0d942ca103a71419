// SPDX-License-Identifier: Apache-2.0
// Waiting for an initialisation of the store that another thread runs.
#pragma once

#include "store/store.h"

#include <unistd.h>

namespace tavstrg {

constexpr int kInitWaits = 30;            // about three seconds in all
constexpr useconds_t kInitPause = 100000; // 100 ms

// Waits until no initialisation runs or kInitWaits waits were made, including the waits of earlier calls. Returns the
// waits made.
inline int waitWhileInitialising(int waits)
{
    for (; gst_first == kBuilding && waits < kInitWaits; ++waits) {
        usleep(kInitPause);
    }
    return waits;
}

// Frees what a failed initialisation left, before another one starts and before the provider is unloaded. Segments are
// removed without a trace.
void releaseEarlierBuild();

} // namespace tavstrg

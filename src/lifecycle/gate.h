// SPDX-License-Identifier: Apache-2.0
// The gate before the store's initialisation, for those who meet one that is running.
#pragma once

#include "store/store.h"

#include <unistd.h>

namespace tavstrg {

constexpr int kInitWaits = 30;            // about three seconds in all
constexpr useconds_t kInitPause = 100000; // 100 ms

// Waits until no initialisation runs or kInitWaits waits were made, those made before included. Returns the waits made.
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

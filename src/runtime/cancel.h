// SPDX-License-Identifier: Apache-2.0
// Where the monitoring thread may be cancelled inside a collection.
#pragma once

#include <pthread.h>

namespace tavstrg {

// A point between two devices: a pending cancel takes effect here and nowhere else, where all that is held is held by
// owners that release. Elsewhere the thread runs with cancellation disabled. Harmless in a thread that nobody cancels.
inline void cancellationPoint()
{
    int previous = PTHREAD_CANCEL_DISABLE;
    pthread_setcancelstate(PTHREAD_CANCEL_ENABLE, &previous);
    pthread_testcancel();
    pthread_setcancelstate(previous, nullptr);
}

} // namespace tavstrg

// SPDX-License-Identifier: Apache-2.0
// Where the monitoring thread may be cancelled.
#pragma once

#include "runtime/progress.h"

#include <pthread.h>

namespace tavstrg {

// A point between two devices. A pending cancel takes effect only here and in the thread's sleep, where destructors
// release all that the thread holds. In a thread that is not cancelled it notes progress only.
inline void cancellationPoint()
{
    noteProgress();
    int previous = PTHREAD_CANCEL_DISABLE;
    pthread_setcancelstate(PTHREAD_CANCEL_ENABLE, &previous);
    pthread_testcancel();
    pthread_setcancelstate(previous, nullptr);
}

// Sets whether this thread can be cancelled, and puts back what was set before.
class CancelSwitch {
public:
    explicit CancelSwitch(int state) { pthread_setcancelstate(state, &previous_); }
    ~CancelSwitch() { pthread_setcancelstate(previous_, nullptr); }
    CancelSwitch(const CancelSwitch &) = delete;
    CancelSwitch &operator=(const CancelSwitch &) = delete;

private:
    int previous_ = PTHREAD_CANCEL_ENABLE;
};

} // namespace tavstrg

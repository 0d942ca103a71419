// SPDX-License-Identifier: Apache-2.0
// Where the monitoring thread, and threads that are set aside, may be cancelled.
#pragma once

#include "runtime/progress.h"

#include <pthread.h>

namespace tavstrg {

// A pending cancel takes effect here: destructors release all that the thread holds.
inline void cancelIfAsked()
{
    int previous = PTHREAD_CANCEL_DISABLE;
    pthread_setcancelstate(PTHREAD_CANCEL_ENABLE, &previous);
    pthread_testcancel();
    pthread_setcancelstate(previous, nullptr);
}

// A point between two devices of a collection. A pending cancel of the monitoring thread takes effect only here and in
// the thread's sleep. In a thread that is not cancelled it notes progress only.
inline void cancellationPoint()
{
    noteProgress();
    cancelIfAsked();
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

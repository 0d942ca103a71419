// SPDX-License-Identifier: Apache-2.0
// A segment's mutex for the length of one operation.
#pragma once

#include "store/segment.h"

namespace tavstrg {

// Taken in service mode only: outside it the store's own lock serialises.
class SegmentLock {
public:
    SegmentLock(const CInfo *cInfo, ShmInfo &shm)
        : mutex_(&shm.mutex.mutex), needed_(getServiceMode(cInfo) == 1), held_(needed_ && shmMutexLock(mutex_) == 0)
    {
    }
    ~SegmentLock()
    {
        if (held_) {
            pthread_mutex_unlock(mutex_); // untraced: this may run while a cancelled thread unwinds
        }
    }
    SegmentLock(const SegmentLock &) = delete;
    SegmentLock &operator=(const SegmentLock &) = delete;

    bool failed() const { return needed_ && !held_; }
    // 0 also where nothing is held; -1 when the mutex could not be released.
    int unlock()
    {
        if (!held_) {
            return 0;
        }
        held_ = false;
        return shmMutexUnlock(mutex_);
    }

private:
    pthread_mutex_t *mutex_;
    bool needed_;
    bool held_;
};

} // namespace tavstrg
